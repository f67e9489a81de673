// Checksums of the shards' tables, by which damage to them is found.

#ifndef ADDONS_SEARCH_CHECKSUMS_H_
#define ADDONS_SEARCH_CHECKSUMS_H_

#include <cstdint>
#include <memory>
#include <set>
#include <utility>

#include "addons/search/connection.h"

namespace Corvan::search {

// SQLite does not notice a changed byte within a list of ids; find() would miss messages. So the
// table `checksum` has one hash for each row of the FTS5 tables' data, and one for each segment's
// part of its index of terms, whose id there is the negative number of the segment.
class Checksums {
 public:
  // Records from now on which rows this connection changes.
  explicit Checksums(const Connection& index);
  Checksums(const Checksums&) = delete;
  Checksums& operator=(const Checksums&) = delete;
  ~Checksums();

  // Writes the hashes of the changed rows. Call it at the end of each transaction.
  void record();
  // Forgets the changed rows, after a rollback.
  void discard();
  // Removes the hashes of a shard's table that is about to be dropped.
  void remove(int64_t number);

  // Compares at most `limit` rows of a shard's table with their hashes, from the row `*position`,
  // and moves `*position` on. False if one differs. When the end is reached, `*position` is kEnd.
  bool agree(int64_t number, int64_t* position, int64_t limit);
  static constexpr int64_t kBegin = -1;  // the segments' indexes of terms come first
  static constexpr int64_t kEnd = INT64_MAX;

 private:
  // Those of one shard's table.
  struct Statements {
    Statements(const Connection& index, int64_t table);
    const int64_t number;
    Statement row;
    Statement segment;
  };

  static void on_change(void* self, int operation, const char* database, const char* table,
                        sqlite3_int64 row) noexcept;
  void record_row(int64_t number, int64_t id);
  void record_segments();
  int64_t segment_hash(int64_t number, int64_t segment);
  Statements& statements(int64_t number);
  void write(int64_t number, int64_t id, int64_t hash, bool exists);
  bool segments_agree(int64_t number);
  bool rows_agree(int64_t number, int64_t* position, int64_t limit) const;

  const Connection& index_;
  Statement savepoint_;
  Statement release_;
  Statement insert_;
  Statement delete_;
  std::unique_ptr<Statements> statements_;         // of the table that was used last
  std::set<std::pair<int64_t, int64_t>> changed_;  // shard, row
  bool is_incomplete_ = false;                     // memory ran out
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CHECKSUMS_H_
