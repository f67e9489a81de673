// Sets of row ids, held as ranges.

#ifndef TOOLS_SALVAGE_ID_RANGES_H_
#define TOOLS_SALVAGE_ID_RANGES_H_

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <utility>

namespace corvan_tool {

// The ids above the first number, up to and including the second.
using IdRange = std::pair<std::int64_t, std::int64_t>;

constexpr IdRange kAllIds = {std::numeric_limits<std::int64_t>::min(),
                             std::numeric_limits<std::int64_t>::max()};

inline bool is_within(std::int64_t id, const IdRange& range) {
  return id > range.first && id <= range.second;
}

// Adjacent and overlapping ranges are joined.
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

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_ID_RANGES_H_
