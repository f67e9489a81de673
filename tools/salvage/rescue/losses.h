// Settles doubtful rows, counts lost ones, and makes rows in their place from other data.

#ifndef TOOLS_SALVAGE_RESCUE_LOSSES_H_
#define TOOLS_SALVAGE_RESCUE_LOSSES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/salvage/coverage.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescue/doubt.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

// What happened to a table's rows.
struct TableResult {
  std::int64_t recovered = 0;
  std::int64_t from_log = 0;                        // recovered rows from pages of the log
  std::int64_t lost = 0;                            // rows that are certainly lost
  std::optional<std::int64_t> lost_at_most;         // nothing if unknown
  std::array<std::int64_t, kDoubts> doubtful = {};  // by Doubt
  std::int64_t taken = 0;                           // doubtful rows that were taken
  std::int64_t made = 0;                            // rows made from other data

  std::int64_t all_doubtful() const;
};

// Used after all rows and names were added.
class LossCounter {
 public:
  // `largest_id` is the largest message id assigned so far, according to the damaged file.
  // `is_bounded` as in RescuedStore::finish(). `file` and `schema` must live longer.
  LossCounter(const RescueFile& file, const KnownSchema& schema,
              std::optional<std::int64_t> largest_id, bool is_bounded);

  // Drops names that must be wrong. Makes unreached rows doubtful if an index that was read whole
  // does not name them. Drops doubtful rows if a sound row has their id or key.
  void settle(std::size_t table, const TableCoverage& coverage) const;

  // After settle(). Sets recovered, doubtful, lost and lost_at_most.
  void count(std::size_t table, const TableCoverage& coverage, TableResult& result) const;

  // After count(). Moves the doubtful rows into the store. Of several versions of a row, the one
  // that was added first is taken. Returns the number of rows moved.
  std::int64_t take_doubtful(std::size_t table) const;

  // The largest id of a message that is in the store, doubtful or named; 0 if there is none.
  std::int64_t largest_known_id() const;

 private:
  void drop_false_names(const KnownTable& table, const TableCoverage& coverage) const;
  void doubt_unnamed(const KnownTable& table) const;
  void drop_superseded(const KnownTable& table) const;
  std::int64_t largest_named() const;
  std::int64_t count_doubtful(const KnownTable& table, std::size_t doubt) const;
  std::int64_t count_lost(std::size_t table) const;
  std::optional<std::int64_t> count_missing_ids(std::size_t table,
                                                const TableCoverage& coverage) const;

  const RescueFile& file_;
  const KnownSchema& schema_;
  const std::optional<std::int64_t> largest_id_;
  const bool is_bounded_;
};

struct MadeSessions {
  std::int64_t count = 0;
  std::int64_t not_counted_as_lost = 0;  // those that LossCounter did not know of
};

// Makes lost conversations from index entries. If no index with all conversations was read whole,
// also makes one for each conversation that messages belong to. Makes none if t_session was read
// whole: a conversation without a row was then removed from the list.
MadeSessions make_sessions(const RescueFile& file, const TableCoverage& coverage);

// Writes the version of a new store if the version is lost. Returns the number of rows made.
std::int64_t make_version(const RescueFile& file, const std::string& version);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_LOSSES_H_
