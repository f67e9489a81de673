// Ranges of row ids.

#ifndef TOOLS_SALVAGE_ID_RANGES_H_
#define TOOLS_SALVAGE_ID_RANGES_H_

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <utility>

namespace corvan_tool {

// Row ids behind the first up to the second.
using IdRange = std::pair<std::int64_t, std::int64_t>;

// Ranges that are joined where they meet, however many are added.
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

  // In order, apart from each other.
  auto begin() const { return ends_.begin(); }
  auto end() const { return ends_.end(); }

 private:
  std::map<std::int64_t, std::int64_t> ends_;  // of each range, by what it begins behind
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_ID_RANGES_H_
