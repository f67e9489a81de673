// What is lost: doubtful rows are settled, and rows that are named but missing are counted.

#ifndef TOOLS_SALVAGE_RESCUE_LOSSES_H_
#define TOOLS_SALVAGE_RESCUE_LOSSES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/salvage/coverage.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescue/doubt.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

// What happened to a table's rows.
struct TableResult {
  std::int64_t recovered = 0;
  std::int64_t from_log = 0;                        // recovered rows from pages of the log
  std::int64_t lost = 0;                            // at least
  std::optional<std::int64_t> lost_at_most;         // nothing if unknown
  std::array<std::int64_t, kDoubts> doubtful = {};  // by Doubt
  std::int64_t taken = 0;                           // doubtful rows that were taken
  std::int64_t made = 0;                            // rows made from other data

  std::int64_t all_doubtful() const;
};

// For the time after all rows and names were added.
class LossCounter {
 public:
  // `largest_id` is the largest message id given so far, by the damaged file. The first two must
  // live longer.
  LossCounter(const RescueFile& file, const KnownSchema& schema,
              std::optional<std::int64_t> largest_id, bool is_bounded);

  // Drops names that must be wrong. Makes unreached rows doubtful if an index that was read whole
  // does not name them, and drops doubtful rows if a sound row has their id or key.
  void settle(std::size_t table, const TableCoverage& coverage) const;

  // After settle(). Sets recovered, doubtful, lost and lost_at_most.
  void count(std::size_t table, const TableCoverage& coverage, TableResult& result) const;

  // After count(). Moves the doubtful rows into the store, of several versions of a row the one
  // that was added first. Returns how many rows were moved.
  std::int64_t take_doubtful(std::size_t table) const;

  // The largest id of a message that was read, left out or named; 0 if there is none.
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

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_LOSSES_H_
