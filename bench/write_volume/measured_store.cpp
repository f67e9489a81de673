#include "bench/write_volume/measured_store.h"

#include <memory>
#include <utility>
#include <vector>

#include "bench/support/messages.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

constexpr int kBatch = 1000;

}  // namespace

Volume::Tree Volume::sum() const {
  Tree sum;
  for (const auto& [name, tree] : trees) {
    sum.pages += tree.pages;
    sum.logged += tree.logged;
    sum.checkpointed += tree.checkpointed;
  }
  return sum;
}

MeasuredStore::MeasuredStore(Traffic::Shape shape, const Sizes& sizes,
                             const std::map<std::string, std::string>& replaced)
    : traffic_(shape, sizes.conversations) {
  store_.open();
  store_.close();
  store_.replace_indexes(replaced);
  fill(sizes.messages);
  store_.open();
}

// In batches and with a large cache, which is faster and leaves the trees as single saves would.
void MeasuredStore::fill(int messages) {
  store_.open();
  store_->execute_none_query("pragma cache_size=-1000000");
  for (int left = messages; left > 0; left -= kBatch) {
    std::vector<std::unique_ptr<Corvan::MessageResponse>> batch;
    for (int i = 0; i < kBatch; ++i) {
      batch.push_back(std::make_unique<Corvan::MessageResponse>(traffic_.next()));
    }
    store_->start_transaction();
    store_->save_message(batch);
    Report::verify(store_->commit_transaction(), "a commit");
  }
  store_.close();
  corvan_test::plant(store_.file(),
                     "insert into t_session(session_id,session_type,session_time,latest_id,"
                     "unread_count) select session_id,session_type,max(sent_time),max(id),"
                     "sum(direction) from t_message group by session_id,session_type order by "
                     "min(id)");
}

Volume MeasuredStore::save(int transactions, int messages_each) {
  begin_counting();
  for (int i = 0; i < transactions; ++i) save_transaction(messages_each);
  return volume(transactions);
}

Volume MeasuredStore::send(int messages) {
  begin_counting();
  for (int i = 0; i < messages; ++i) send_one();
  return volume(messages);
}

void MeasuredStore::begin_counting() {
  store_->execute_none_query("pragma wal_checkpoint(truncate)");
  files_.clear();
}

void MeasuredStore::save_transaction(int messages) {
  store_->start_transaction();
  for (int i = 0; i < messages; ++i) {
    Report::verify(save_live(traffic_.next()) > 0, "a save");
  }
  Report::verify(store_->commit_transaction(), "a commit");
  files_.end_transaction();
}

void MeasuredStore::send_one() {
  Corvan::MessageResponse m = traffic_.next();
  while (m.is_receive_) m = traffic_.next();
  const std::string server_uid = std::exchange(m.server_uid_, "");
  m.sent_status_ = 1;
  store_->start_transaction();
  const int64_t id = save_live(m);
  Report::verify(id > 0 && store_->commit_transaction(), "a save");
  files_.end_transaction();
  store_->set_send_time(id, m.sent_time_ + 1, server_uid, m.session_id_, m.session_type_, 0);
  files_.end_transaction();
}

std::map<int64_t, std::string> MeasuredStore::trees_of_pages() const {
  std::map<int64_t, std::string> trees;
  for (const std::string& row :
       corvan_test::rows(store_.file(), "select pageno,name from dbstat")) {
    const std::size_t bar = row.find('|');
    trees[std::stoll(row)] = row.substr(bar + 1);
  }
  return trees;
}

Volume MeasuredStore::volume(int transactions) {
  store_->execute_none_query("pragma wal_checkpoint(passive)");
  const std::map<int64_t, std::string> trees = trees_of_pages();
  constexpr auto kPageSize = static_cast<double>(CountingFileSystem::kPageSize);
  const double count = transactions;
  Volume volume;
  volume.bytes = static_cast<double>(files_.bytes()) / count;
  for (const auto& [page, writes] : files_.pages()) {
    const auto found = trees.find(page);
    Volume::Tree& tree = volume.trees[found == trees.end() ? "(free)" : found->second];
    tree.pages += static_cast<double>(writes.transactions) / count;
    tree.logged += static_cast<double>(writes.logged) * kPageSize / count;
    tree.checkpointed += static_cast<double>(writes.checkpointed) * kPageSize / count;
  }
  return volume;
}

}  // namespace corvan_bench
