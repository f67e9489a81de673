#ifndef TESTS_SUPPORT_CLOCK_H_
#define TESTS_SUPPORT_CLOCK_H_

#include <cstdint>

namespace corvan_test {

// The time that Corvan::Timestamp() returns from now on. It changes only by this call.
void set_clock(int64_t now);
int64_t clock_now();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_CLOCK_H_
