// Row ids that cannot be right because they do not fit between their neighbours.

#ifndef TOOLS_SALVAGE_KEY_ORDER_H_
#define TOOLS_SALVAGE_KEY_ORDER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvan_tool {

// The positions of the fewest keys whose removal leaves the rest strictly ascending.
std::vector<std::size_t> out_of_order(const std::vector<std::int64_t>& keys);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_KEY_ORDER_H_
