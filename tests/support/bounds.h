// How far the suites go that try points at random or in turn: every number has a default for each
// change, a larger one for CI, and an environment variable for whoever looks for more.

#ifndef TESTS_SUPPORT_BOUNDS_H_
#define TESTS_SUPPORT_BOUNDS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace corvan_test {

// The number that the environment variable holds, or `fallback`.
uint64_t setting(const char* name, uint64_t fallback);

// The number of the environment variable `name`; without it `thorough` when CORVAN_BOUNDS is
// "thorough", else `usual`.
uint64_t bound(const char* name, uint64_t usual, uint64_t thorough);

// CORVAN_SECONDS, counted from the start of the process: a suite goes on with new seeds until they
// have passed. Without the variable there is no time to fill, and none that ends.
class TimeLimit {
 public:
  TimeLimit();
  bool given() const { return seconds_ > 0; }
  bool passed() const;

 private:
  std::chrono::steady_clock::time_point start_;
  uint64_t seconds_;
};

// What a suite has done, in one line of standard output for scripts/soak.sh to collect.
struct Tally {
  uint64_t points = 0;   // runs, each with its own fault, or none
  uint64_t faults = 0;   // of them, those in which one took place
  uint64_t lost = 0;     // acknowledged work that was gone afterwards
  uint64_t aborted = 0;  // processes that ended otherwise than they should
};
void print(const std::string& suite, const Tally& tally);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_BOUNDS_H_
