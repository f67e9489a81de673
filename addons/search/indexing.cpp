#include "addons/search/indexing.h"

#include "addons/search/fitting.h"
#include "addons/search/log_line.h"
#include "addons/search/tidying.h"

namespace Corvan::search {

namespace {

constexpr int64_t kBatch = 8192;
// Between two looks at the clock. A message without content takes as long as so many bytes.
constexpr std::size_t kBytesBetweenLooks = 4096;
constexpr std::size_t kBytesPerMessage = 100;
constexpr TimeBudget::Duration kMergeStep{5000};  // a step of merging takes about so long

}  // namespace

Indexing::Files::Files(const std::string& store_file, const std::string& index_file,
                       const IndexCloser& close_reader)
    : store(store_file),
      connection(open_index_for_writing(index_file, store_file, close_reader)),
      identity(identity_of(index_file)),
      index(*connection,
            [this](int64_t id) {
              return count_pairs(store.sample(id, kShardSize), store.newest_id());
            }),
      sweeping(&index, &store) {
  index.reload();
}

bool Indexing::is_open() {
  const auto present = std::make_pair(identity_of(store_file_), identity_of(index_file_));
  const std::lock_guard<std::mutex> lock(opened_mutex_);
  return !is_damaged_ && opened_.second && opened_ == present;
}

void Indexing::close() {
  files_.reset();
  const std::lock_guard<std::mutex> lock(opened_mutex_);
  opened_ = {};
}

// Deletes an index that must not be used.
void Indexing::require_deletion() {
  is_rejected_ = !delete_index(index_file_, close_reader_);
  if (is_rejected_) fail_index(SQLITE_CANTOPEN, {index_file_, ": cannot be replaced"});
}

void Indexing::open_files() {
  files_ = std::make_unique<Files>(store_file_, index_file_, close_reader_);
}

// Meanwhile, another thread may report further damage.
void Indexing::delete_if_damaged() {
  if (!is_damaged_.exchange(false)) return;
  try {
    require_deletion();
  } catch (...) {
    is_damaged_ = true;
    throw;
  }
}

void Indexing::ensure_open() {
  if (files_ != nullptr && is_open()) return;
  close();
  delete_if_damaged();
  open_files();
  if (!fit_to_store(&files_->index, &files_->store)) {
    close();
    require_deletion();
    open_files();
  }
  is_rejected_ = false;
  const std::lock_guard<std::mutex> lock(opened_mutex_);
  opened_ = {files_->store.identity(), files_->identity};
}

// Throws the exception that is being handled again, unless it says that the index is damaged.
void Indexing::recover() {
  try {
    throw;
  } catch (const SqlError& error) {
    if (error.status() != SearchStatus::kIndexError || !is_damage(error)) throw;
    log_line(error.text(), ": the index is created again");
    require_deletion();
  }
}

template <typename Work>
void Indexing::use(const Work& work) {
  for (bool is_first = true;; is_first = false) {
    try {
      ensure_open();
      return work();
    } catch (...) {
      close();
      if (!is_first) throw;
      recover();
    }
  }
}

void Indexing::open() {
  use([] {});
}

SearchWork Indexing::catch_up(const TimeBudget& budget) {
  SearchWork work;
  use([&] {
    work = {};
    files_->index.reload();
    cut_to_store(&files_->index, &files_->store);
    bool is_all = false;
    do {
      is_all = index_batch(budget, &work);
      if (!is_all) merge_full_shard(&files_->index);  // find() is faster then
    } while (!is_all && !budget.is_over());
    work.complete = is_all && make_compact(budget, work.messages > 0);
  });
  return work;
}

// True if nothing is left to do. A call that has indexed something leaves the work to a later one,
// unless it has time.
bool Indexing::make_compact(const TimeBudget& budget, bool has_indexed) {
  if (has_indexed && budget.left() < kMergeStep) return !needs_merge(files_->index.shards());
  return tidy(&files_->index, budget);
}

// One transaction. True if all messages are indexed.
bool Indexing::index_batch(const TimeBudget& budget, SearchWork* work) {
  IndexWriter& index = files_->index;
  if (index.state().highest >= files_->store.newest_id()) return true;
  IndexChange change(&index);  // another process may have indexed messages meanwhile
  Statement& rows = files_->store.messages(index.state().highest + 1, kLastId, kBatch);
  int64_t count = 0;
  const bool has_more = append(&rows, budget, &count);
  rows.reset();
  if (count == 0) return true;
  const bool is_all = !has_more && count < kBatch;
  if (is_all) index.merge_new_segments(index.shards().back(), count);
  change.commit();
  work->messages += count;
  return is_all;
}

// Indexes the messages of the rows, and counts them. True if the time ended first.
bool Indexing::append(Statement* rows, const TimeBudget& budget, int64_t* count) {
  std::size_t bytes = 0;
  bool has_more = files_->store.next_message();
  while (has_more) {
    const std::string_view content = rows->text(1);
    bytes += content.size() + kBytesPerMessage;
    files_->index.append(rows->integer(0), content);
    ++*count;
    has_more = files_->store.next_message();
    if (bytes < kBytesBetweenLooks) continue;
    if (budget.is_over()) break;
    bytes = 0;
  }
  return has_more;
}

void Indexing::changed(int64_t id) {
  use([&] {
    IndexChange change(&files_->index);
    if (id < 1 || id > files_->index.state().highest) return;
    if (const auto content = files_->store.content(id)) {
      if (fingerprint(*content) == files_->index.fingerprints().of(id)) return;
      files_->index.replace(id, *content);
    } else {
      files_->index.forget(id);
    }
    change.commit();
  });
}

SearchWork Indexing::sweep(const TimeBudget& budget) {
  SearchWork work;
  use([&] {
    work = {};
    files_->sweeping.run(budget, &work);
  });
  return work;
}

}  // namespace Corvan::search
