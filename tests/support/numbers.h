// Boundary values of integers, and the code of success.

#ifndef TESTS_SUPPORT_NUMBERS_H_
#define TESTS_SUPPORT_NUMBERS_H_

#include <cstdint>
#include <limits>

namespace corvan_test {

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int64_t kMaxLong = std::numeric_limits<int64_t>::max();
constexpr int64_t kMinLong = std::numeric_limits<int64_t>::min();
constexpr int64_t kWide = int64_t{1} << 32;  // above 32 bits; the lower 32 bits are 0

constexpr int32_t kDone = 101;  // of execute_none_query() when the statement ran

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_NUMBERS_H_
