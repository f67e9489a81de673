#ifndef TESTS_SUPPORT_CLOCK_H_
#define TESTS_SUPPORT_CLOCK_H_

#include <cstdint>

namespace corvan_test {

// What Corvan::Timestamp() answers from now on. It stands still in between.
void set_clock(int64_t now);
int64_t clock_now();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_CLOCK_H_
