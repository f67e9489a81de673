// How much of a store's tables and indexes has been read, and which row ids were not.

#ifndef TOOLS_SALVAGE_COVERAGE_H_
#define TOOLS_SALVAGE_COVERAGE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <utility>
#include <vector>

namespace corvan_tool {

// Row ids above `first`, up to and including `second`.
using IdRange = std::pair<std::int64_t, std::int64_t>;

constexpr IdRange kAllIds = {std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max()};

inline bool is_within(std::int64_t id, const IdRange& range) {
  return id > range.first && id <= range.second;
}

// A set of row ids. Adjacent and overlapping ranges are joined.
class IdRanges {
 public:
  void add(IdRange range) {
    if (range.first >= range.second) return;
    auto next = ends_.upper_bound(range.first);
    if (next != ends_.begin() && std::prev(next)->second >= range.first) --next;
    for (; next != ends_.end() && next->first <= range.second; next = ends_.erase(next)) {
      range.first = std::min(range.first, next->first);
      range.second = std::max(range.second, next->second);
    }
    ends_.insert(range);
  }

  bool has(std::int64_t id) const {
    const auto next = ends_.lower_bound(id);
    return next != ends_.begin() && std::prev(next)->second >= id;
  }

  bool empty() const { return ends_.empty(); }

  // In ascending order, with gaps between them.
  auto begin() const { return ends_.begin(); }
  auto end() const { return ends_.end(); }

 private:
  std::map<std::int64_t, std::int64_t> ends_;  // first to second number of each range
};

struct TableCoverage {
  bool is_whole = false;          // every page of the tree was read without a fault
  bool has_all_names = false;     // every page of an index with an entry for each row was read
  IdRanges missing;               // ids that were on unreadable pages
  std::size_t added_columns = 0;  // columns that follow those of a new store's table
};

// Tables and indexes have the same places as in KnownSchema.
struct Coverage {
  Coverage(std::size_t table_count, std::size_t index_count)
      : tables(table_count), index_is_whole(index_count, false) {}

  std::vector<TableCoverage> tables;
  std::vector<bool> index_is_whole;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_COVERAGE_H_
