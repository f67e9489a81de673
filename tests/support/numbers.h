// Numbers that the tests try at the edges, and the code that tells success.

#ifndef TESTS_SUPPORT_NUMBERS_H_
#define TESTS_SUPPORT_NUMBERS_H_

#include <cstdint>
#include <limits>

namespace corvan_test {

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int64_t kMaxLong = std::numeric_limits<int64_t>::max();
constexpr int64_t kMinLong = std::numeric_limits<int64_t>::min();
constexpr int64_t kWide = int64_t{1} << 32;  // beyond 32 bits, its lower half zero

constexpr int32_t kDone = 101;  // of execute_none_query() when the statement ran

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_NUMBERS_H_
