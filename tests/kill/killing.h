// A process that works on a store, and its end.

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

// What the two processes both see; all else that the killed one knew is gone with it.
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
  // How long the last of this phase took.
  uint32_t microseconds(Phase phase) const;

 private:
  struct Page {
    std::atomic<std::size_t> running{0};  // the index plus one
    std::array<std::atomic<uint32_t>, kPhases> microseconds{};
  };
  Page* page_;
};

// When the process dies: so long after it has acknowledged so many operations.
struct Aim {
  std::size_t acknowledged = 0;
  uint32_t microseconds = 0;
};

struct Killed {
  std::vector<int64_t> results;        // of the operations that it acknowledged
  std::optional<std::size_t> running;  // the operation in the middle of which it died
  std::string otherwise;               // how it ended when not by the kill
};

// Runs the plan in a process of its own and kills it. No store may be open here.
Killed kill_at_work(const Plan& plan, const Aim& aim, Watch& watch);

}  // namespace corvan_test

#endif  // TESTS_KILL_KILLING_H_
