#include "tools/salvage/key_order.h"

#include <algorithm>

namespace corvan_tool {

namespace {

// Marks a longest strictly ascending subsequence.
std::vector<bool> longest_ascent(const std::vector<std::int64_t>& keys) {
  // ends[n] is the position of the smallest key that ends a subsequence of n + 1 keys.
  std::vector<std::size_t> ends;
  const std::size_t none = keys.size();
  std::vector<std::size_t> predecessor(keys.size(), none);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto end =
        std::lower_bound(ends.begin(), ends.end(), keys[i],
                         [&keys](std::size_t at, std::int64_t key) { return keys[at] < key; });
    if (end != ends.begin()) predecessor[i] = *(end - 1);
    if (end == ends.end()) {
      ends.push_back(i);
    } else {
      *end = i;
    }
  }
  std::vector<bool> is_in(keys.size(), false);
  for (std::size_t i = ends.empty() ? none : ends.back(); i != none; i = predecessor[i]) {
    is_in[i] = true;
  }
  return is_in;
}

}  // namespace

std::vector<std::size_t> out_of_order(const std::vector<std::int64_t>& keys) {
  const std::vector<bool> is_in_order = longest_ascent(keys);
  std::vector<std::size_t> result;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!is_in_order[i]) result.push_back(i);
  }
  return result;
}

}  // namespace corvan_tool
