#include "bench/search/times.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <numeric>

namespace corvan_bench {

double processor_time() {
  timespec time = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

// The smallest time that at least so many percent do not exceed.
double Times::percentile(double percent) const {
  std::vector<double> sorted = times_;
  std::sort(sorted.begin(), sorted.end());
  const double place = std::ceil(percent / 100 * static_cast<double>(sorted.size()));
  return sorted.at(static_cast<std::size_t>(std::max(1.0, place)) - 1);
}

double Times::mean() const {
  return std::accumulate(times_.begin(), times_.end(), 0.0) / static_cast<double>(times_.size());
}

Report::Row summary_row(const std::string& name, const Times& times) {
  return {name, times.count(), times.median(), times.mean(), times.percentile(99), times.largest()};
}

std::vector<std::string> summary_columns(const std::string& first) {
  return {first, "calls", "median", "mean", "99th percentile", "largest"};
}

}  // namespace corvan_bench
