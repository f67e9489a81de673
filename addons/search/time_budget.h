// The time that a call may take.

#ifndef ADDONS_SEARCH_TIME_BUDGET_H_
#define ADDONS_SEARCH_TIME_BUDGET_H_

#include <algorithm>
#include <chrono>

namespace Corvan::search {

class TimeBudget {
 public:
  using Clock = std::chrono::steady_clock;
  using Duration = std::chrono::microseconds;

  // Durations of more than a year count as a year, so that their end can be represented.
  explicit TimeBudget(Duration duration)
      : end_(Clock::now() + std::clamp<Duration>(duration, Duration(0), std::chrono::hours(8760))) {
  }

  // Ends later.
  void extend(Clock::duration duration) { end_ += duration; }

  static TimeBudget unlimited() { return TimeBudget(Duration::max()); }

  bool is_over() const { return Clock::now() >= end_; }
  Duration left() const {
    return std::max(Duration(0), std::chrono::duration_cast<Duration>(end_ - Clock::now()));
  }

 private:
  Clock::time_point end_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TIME_BUDGET_H_
