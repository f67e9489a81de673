// Starts a process that works on a store, and kills it.

#ifndef TESTS_KILL_KILLING_H_
#define TESTS_KILL_KILLING_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/kill/planner.h"

namespace corvan_test {

// Memory that both processes share. Everything else that the killed process knew is lost.
class Watch {
 public:
  Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch();

  void reset() { page_->running = 0; }
  void begin(std::size_t index) { page_->running = index + 1; }
  void end(Phase phase, uint32_t microseconds);

  // The operation that is running.
  std::optional<std::size_t> running() const;
  // How long the last operation of this phase took.
  uint32_t microseconds(Phase phase) const;

 private:
  struct Page {
    std::atomic<std::size_t> running{0};  // the index plus one
    std::array<std::atomic<uint32_t>, kPhases> microseconds{};
  };
  Page* page_;
};

// When to kill the process: this long after it has acknowledged this many operations.
struct Aim {
  std::size_t acknowledged = 0;
  uint32_t microseconds = 0;
};

struct Killed {
  std::vector<int64_t> results;        // of the operations that it acknowledged
  std::optional<std::size_t> running;  // the operation in the middle of which it died
  std::string otherwise;               // how the process ended if it was not killed
};

// Runs the plan in a child process and kills it. No store may be open in this process.
Killed kill_at_work(const Plan& plan, const Aim& aim, Watch& watch);

}  // namespace corvan_test

#endif  // TESTS_KILL_KILLING_H_
