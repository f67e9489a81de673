#include "addons/search/index_writer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <utility>

#include "addons/search/tokenizer.h"

namespace Corvan::search {

namespace {

struct Option {
  const char* name;
  int64_t value;
};

// FTS5 merges the segments of a table by itself only if there are very many. Otherwise it would
// write most messages several times while a full store is indexed.
constexpr std::array<Option, 5> kOptions = {{
    {"pgsz", 4050},         // a row of the table's data then fits in a page of the file
    {"hashsize", 1 << 21},  // bytes of terms that may wait in memory
    {"automerge", 0},
    {"crisismerge", 64},
    {"usermerge", 9},  // segments that are worth a merge in merge_new_segments()
}};

std::string set_option(std::string_view table, std::string_view name) {
  return joined({"insert into ", table, "(", table, ",rank) values('", name, "',?)"});
}

}  // namespace

IndexWriter::IndexWriter(const Connection& index, PairSource find_pairs)
    : index_(index),
      state_rows_(index, kStateQuery),
      shard_rows_(index, kShardQuery),
      store_state_(index,
                   "update state set highest=?,swept_to=?,verified_to=?,is_swept=?,next_number=?"),
      store_shard_(index, "insert or replace into shard values(?,?,?,?,?,?,?,?,?,?)"),
      fingerprints_(index),
      checksums_(index),
      find_pairs_(std::move(find_pairs)),
      pairs_(index) {
  index.require(register_tokenizer(index.handle(), &used_pairs_));
}

Shard* IndexWriter::shard_of(int64_t id) {
  const auto after =
      std::upper_bound(shards_.begin(), shards_.end(), id,
                       [](int64_t value, const Shard& shard) { return value < shard.first_id; });
  return after == shards_.begin() ? nullptr : &*std::prev(after);
}

int64_t IndexWriter::end_of(const Shard& shard) const {
  const auto place = static_cast<std::size_t>(&shard - shards_.data());
  if (place + 1 == shards_.size()) return std::numeric_limits<int64_t>::max();
  return shards_[place + 1].first_id - 1;
}

Shard& IndexWriter::shard_for_new(int64_t id) {
  if (shards_.empty() || shards_.back().messages >= kShardSize) {
    Shard shard;
    shard.first_id = shards_.empty() ? std::min<int64_t>(id, 1) : id;
    shard.number = create_table(shard.first_id);
    shards_.push_back(shard);
  }
  return shards_.back();
}

void IndexWriter::append(int64_t id, std::string_view content) {
  Shard& shard = shard_for_new(id);
  add_terms(shard.number, id, content);
  ++shard.messages;
  ++shard.unmerged;
  fingerprints_.append(id, fingerprint(content));
  state_.highest = id;
}

// While a new table is built, it has the messages up to `built_to`; it gets later ones in its turn.
void IndexWriter::replace(int64_t id, std::string_view content) {
  Shard* const shard = shard_of(id);
  if (shard == nullptr) index_.fail(SQLITE_CORRUPT);
  const bool is_known = fingerprints_.of(id) != kNoMessage;
  add_terms(shard->number, id, content);
  ++shard->unmerged;
  merge_new_segments(*shard, 1);
  ++(is_known ? shard->stale : shard->messages);
  if (shard->building != 0 && id <= shard->built_to) {
    add_terms(shard->building, id, content);
    if (is_known) ++shard->stale_built;
  }
  fingerprints_.set(id, fingerprint(content));
}

void IndexWriter::forget(int64_t id) {
  Shard* const shard = shard_of(id);
  if (shard == nullptr || fingerprints_.of(id) == kNoMessage) return;
  ++shard->stale;
  --shard->messages;
  if (shard->building != 0 && id <= shard->built_to) ++shard->stale_built;
  fingerprints_.set(id, kNoMessage);
}

void IndexWriter::cut_after(int64_t id) {
  while (!shards_.empty() && shards_.back().first_id > id) {
    if (shards_.back().building != 0) drop_table(shards_.back().building);
    drop_table(shards_.back().number);
    shards_.pop_back();
  }
  fingerprints_.cut_after(id);
  if (!shards_.empty()) {
    set_messages(&shards_.back());
    ++shards_.back().stale;
    if (shards_.back().building != 0) ++shards_.back().stale_built;
    shards_.back().built_to = std::min(shards_.back().built_to, id);
  }
  state_.highest = id;
  if (state_.swept_to > id) {
    state_.swept_to = id;
    state_.verified_to = Checksums::kEnd;
  }
}

void IndexWriter::set_messages(Shard* shard) {
  shard->messages = 0;
  const FingerprintRow* row = fingerprints_.row_from(shard->first_id);
  while (row != nullptr) {
    for (const Fingerprint hash : row->hashes) shard->messages += hash != kNoMessage ? 1 : 0;
    row = fingerprints_.row_from(row->first_id + 1);
  }
}

IndexWriter::TableStatements::TableStatements(const Connection& index, int64_t table)
    : number(table),
      insert(index, joined({"insert into ", shard_table(number), "(rowid,content) values(?,?)"})),
      merge(index, set_option(shard_table(number), "merge")) {}

IndexWriter::TableStatements& IndexWriter::statements(int64_t table) {
  if (statements_ == nullptr || statements_->number != table) {
    statements_ = std::make_unique<TableStatements>(index_, table);
  }
  return *statements_;
}

void IndexWriter::add_terms(int64_t table, int64_t id, std::string_view content) {
  used_pairs_ = &pairs_.of(table);
  statements(table).insert.bind(id, content).run();
}

void IndexWriter::merge(int64_t table, int64_t pages) {
  statements(table).merge.bind(pages).run();
}

// FTS5 takes long to find out whether there are many segments, in comparison with adding a message.
void IndexWriter::merge_new_segments(const Shard& shard, int64_t added) {
  if (shard.unmerged % 8 < added) merge_new_segments(shard.number);
}

// A negative number of pages begins the merge of all segments. FTS5's documentation: a merge is
// complete when a step changes less than two rows.
bool IndexWriter::merge_all_segments(int64_t table, bool is_begun) {
  const int before = sqlite3_total_changes(index_.handle());
  merge(table, is_begun ? kMergedPages : -kMergedPages);
  return sqlite3_total_changes(index_.handle()) - before >= 2;
}

int64_t IndexWriter::create_table(int64_t first_id) {
  const int64_t number = state_.next_number++;
  const std::string name = shard_table(number);
  index_.run(joined({"create virtual table ", name,
                     " using fts5(content,content='',columnsize=0,detail=none,tokenize=corvan)"}));
  for (const auto& [option, value] : kOptions) {
    Statement(index_, set_option(name, option)).bind(value).run();
  }
  pairs_.add(number, find_pairs_(first_id));
  return number;
}

void IndexWriter::drop_table(int64_t number) {
  statements_.reset();
  index_.run(joined({"drop table ", shard_table(number)}));
  checksums_.remove(number);
  pairs_.remove(number);
}

void IndexWriter::reload() {
  state_ = read_state(&state_rows_);
  shards_ = read_shards(&shard_rows_);
  stored_shards_ = shards_;
}

void IndexWriter::store() {
  fingerprints_.flush();
  store_shards();
  store_state_
      .bind(state_.highest, state_.swept_to, state_.verified_to,
            static_cast<int64_t>(state_.is_swept), state_.next_number)
      .run();
  checksums_.record();
}

void IndexWriter::store_shards() {
  if (shards_.size() < stored_shards_.size()) {
    index_.run("delete from shard");
    stored_shards_.clear();
  }
  for (std::size_t i = 0; i < shards_.size(); ++i) {
    const auto values = shards_[i].values();
    if (i < stored_shards_.size() && stored_shards_[i].values() == values) continue;
    store_shard_.bind(shards_[i].row()).run();
  }
  stored_shards_ = shards_;
}

void IndexWriter::forget_changes() {
  fingerprints_.discard();
  checksums_.discard();
}

IndexChange::IndexChange(IndexWriter* index)
    : index_(*index), transaction_(index->index_, "begin immediate") {
  index_.reload();
  index_.forget_changes();  // another process may have changed the rows
}

IndexChange::~IndexChange() {
  if (is_committed_) return;
  index_.forget_changes();
  index_.pairs_.forget();  // the numbers of new tables will be used again
}

void IndexChange::commit() {
  index_.store();
  transaction_.commit();
  is_committed_ = true;
}

}  // namespace Corvan::search
