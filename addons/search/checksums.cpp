#include "addons/search/checksums.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "addons/search/hashing.h"
#include "addons/search/index_file.h"

namespace Corvan::search {

namespace {

// FTS5 writes the number of the segment into the upper bits of a row's id.
constexpr int kSegmentShift = 37;

// The number of a shard, from the name of its table of data; 0 for other tables.
int64_t shard_of(const char* table) {
  constexpr std::string_view kBeginning = "shard_";
  if (std::strncmp(table, kBeginning.data(), kBeginning.size()) != 0) return 0;
  char* end = nullptr;
  const int64_t number = std::strtoll(table + kBeginning.size(), &end, 10);
  return std::strcmp(end, "_data") == 0 ? number : 0;
}

std::string data_query(int64_t number, const char* condition) {
  return joined({"select id,block from ", shard_table(number), "_data where ", condition});
}

std::string segment_query(int64_t number) {
  return joined(
      {"select term,pgno from ", shard_table(number), "_idx where segid=? order by term"});
}

}  // namespace

Checksums::Checksums(const Connection& index)
    : index_(index),
      savepoint_(index, "savepoint terms"),
      release_(index, "release terms"),
      insert_(index, "insert or replace into checksum values(?,?,?)"),
      delete_(index, "delete from checksum where number=? and id=?") {
  sqlite3_update_hook(index.handle(), on_change, this);
}

Checksums::~Checksums() {
  sqlite3_update_hook(index_.handle(), nullptr, nullptr);
}

void Checksums::on_change(void* self, int /*operation*/, const char* /*database*/,
                          const char* table, sqlite3_int64 row) noexcept {
  const int64_t number = shard_of(table);
  if (number == 0) return;
  auto& checksums = *static_cast<Checksums*>(self);
  try {
    checksums.changed_.emplace(number, row);
  } catch (const std::bad_alloc&) {
    checksums.is_incomplete_ = true;
  }
}

// FTS5 keeps new terms in memory until the transaction ends or a savepoint is set.
void Checksums::record() {
  savepoint_.bind().run();
  release_.bind().run();
  if (is_incomplete_) throw std::bad_alloc();
  for (const auto& [number, id] : changed_) record_row(number, id);
  record_segments();
  changed_.clear();
}

void Checksums::record_row(int64_t number, int64_t id) {
  Statement& row = statements(number).row;
  const bool exists = row.bind(id).row();
  write(number, id, exists ? static_cast<int64_t>(hash_of(row.blob(1))) : 0, exists);
  row.reset();
}

Checksums::Statements::Statements(const Connection& index, int64_t table)
    : number(table),
      row(index, data_query(number, "id=?")),
      segment(index, segment_query(number)) {}

Checksums::Statements& Checksums::statements(int64_t number) {
  if (statements_ == nullptr || statements_->number != number) {
    statements_ = std::make_unique<Statements>(index_, number);
  }
  return *statements_;
}

// The hash of a segment's index of terms; 0 if it has none.
int64_t Checksums::segment_hash(int64_t number, int64_t segment) {
  Statement& row = statements(number).segment;
  uint64_t hash = 0;
  for (row.bind(segment); row.row();) {
    hash = mixed(hash_of(row.blob(0)) ^ hash, static_cast<uint64_t>(row.integer(1)));
  }
  return static_cast<int64_t>(hash);
}

void Checksums::record_segments() {
  std::pair<int64_t, int64_t> last(0, 0);
  for (const auto& [number, id] : changed_) {
    const std::pair<int64_t, int64_t> segment(number, id >> kSegmentShift);
    if (segment == last || segment.second == 0) continue;
    last = segment;
    const int64_t hash = segment_hash(number, segment.second);
    write(number, -segment.second, hash, hash != 0);
  }
}

void Checksums::write(int64_t number, int64_t id, int64_t hash, bool exists) {
  if (exists) {
    insert_.bind(number, id, hash).run();
  } else {
    delete_.bind(number, id).run();
  }
}

void Checksums::remove(int64_t number) {
  statements_.reset();
  for (auto row = changed_.begin(); row != changed_.end();) {
    row = row->first == number ? changed_.erase(row) : std::next(row);
  }
  Statement(index_, "delete from checksum where number=?").bind(number).run();
}

void Checksums::discard() {
  changed_.clear();
  is_incomplete_ = false;
}

bool Checksums::agree(int64_t number, int64_t* position, int64_t limit) {
  if (*position != kBegin) return rows_agree(number, position, limit);
  *position = 0;
  return segments_agree(number);
}

bool Checksums::segments_agree(int64_t number) {
  Statement recorded(index_, "select -id,hash from checksum where number=? and id<0");
  int64_t segments = 0;
  for (recorded.bind(number); recorded.row(); ++segments) {
    if (segment_hash(number, recorded.integer(0)) != recorded.integer(1)) return false;
  }
  return index_.number(joined(
             {"select count(distinct segid) from ", shard_table(number), "_idx"})) == segments;
}

bool Checksums::rows_agree(int64_t number, int64_t* position, int64_t limit) const {
  Statement rows(index_, data_query(number, "id>=? order by id limit ?"));
  Statement recorded(index_,
                     "select id,hash from checksum where number=? and id>=? order by id limit ?");
  rows.bind(*position, limit);
  recorded.bind(number, *position, limit);
  for (int64_t i = 0; i < limit; ++i) {
    const bool has_row = rows.row();
    if (recorded.row() != has_row) return false;
    if (!has_row) {
      *position = kEnd;
      return true;
    }
    if (rows.integer(0) != recorded.integer(0) || rows.integer(0) < *position) return false;
    if (static_cast<int64_t>(hash_of(rows.blob(1))) != recorded.integer(1)) return false;
    *position = rows.integer(0) + 1;
  }
  return true;
}

}  // namespace Corvan::search
