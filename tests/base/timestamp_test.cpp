#include "base/timestamp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

namespace corvan_test {
namespace {

int64_t system_milliseconds() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return duration_cast<milliseconds>(now).count();
}

TEST(Timestamp, IsTheSystemTimeInMilliseconds) {
  const int64_t before = system_milliseconds();
  const int64_t now = Corvan::Timestamp();
  const int64_t after = system_milliseconds();
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

TEST(Timestamp, AdvancesWithTime) {
  const int64_t before = Corvan::Timestamp();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_GE(Corvan::Timestamp(), before + 5);
}

// The clock of some systems advances only at their timer's ticks, at most 16 milliseconds apart.
TEST(Timestamp, AdvancesInStepsOfAtMostTwentyMilliseconds) {
  int64_t smallest = 1000;
  int64_t previous = Corvan::Timestamp();
  for (int steps = 0; steps < 10;) {
    const int64_t now = Corvan::Timestamp();
    if (now == previous) continue;
    smallest = std::min(smallest, now - previous);
    previous = now;
    ++steps;
  }
  EXPECT_LE(smallest, 20);
}

TEST(Timestamp, NeverGoesBackOnAnyThread) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      int64_t previous = 0;
      for (int n = 0; n < 1000; ++n) {
        const int64_t now = Corvan::Timestamp();
        EXPECT_GE(now, previous);
        previous = now;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace corvan_test
