#ifndef BENCH_SUPPORT_TIMING_H_
#define BENCH_SUPPORT_TIMING_H_

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace corvan_bench {

// The time of one call in microseconds.
template <typename Function>
double time_of(Function&& function) {
  const auto start = std::chrono::steady_clock::now();
  function();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Disturbances can only slow a run down, so on a busy machine the lower quartile reflects an
// operation better than the median.
inline double lower_quartile(std::vector<double> values) {
  const auto quarter = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 4);
  std::nth_element(values.begin(), quarter, values.end());
  return *quarter;
}

// The median time of each function in microseconds. The functions take turns in each round, so that
// disturbances affect all of them.
inline std::vector<double> alternating_medians(
    int rounds, const std::vector<std::function<void()>>& functions) {
  std::vector<std::vector<double>> times(functions.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < functions.size(); ++i) times[i].push_back(time_of(functions[i]));
  }
  std::vector<double> medians;
  for (const std::vector<double>& each : times) medians.push_back(median(each));
  return medians;
}

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_TIMING_H_
