// How many points the random and exhaustive suites try. Each number has a default for everyday
// runs, a larger one for CI, and an environment variable.

#ifndef TESTS_SUPPORT_BOUNDS_H_
#define TESTS_SUPPORT_BOUNDS_H_

#include <chrono>
#include <cstdint>
#include <string>

namespace corvan_test {

// The number that the environment variable holds, or `fallback`.
uint64_t setting(const char* name, uint64_t fallback);

// The number in the environment variable `name`. If it is not set: `thorough` if CORVAN_BOUNDS is
// "thorough", else `usual`.
uint64_t bound(const char* name, uint64_t usual, uint64_t thorough);

// The time limit in CORVAN_SECONDS, counted from the start of the process: a suite continues with
// new seeds until it has passed. Without the variable there is no limit.
class TimeLimit {
 public:
  TimeLimit();
  bool given() const { return seconds_ > 0; }
  bool passed() const;

 private:
  std::chrono::steady_clock::time_point start_;
  uint64_t seconds_;
};

// Counts what a suite has done. Printed as one line of standard output, which scripts/soak.sh
// collects.
struct Tally {
  uint64_t points = 0;   // runs, each with its own fault or without one
  uint64_t faults = 0;   // runs in which the fault took place
  uint64_t lost = 0;     // runs after which acknowledged work was gone
  uint64_t aborted = 0;  // processes that ended abnormally
};
void print(const std::string& suite, const Tally& tally);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_BOUNDS_H_
