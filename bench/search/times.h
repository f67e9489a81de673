#ifndef BENCH_SEARCH_TIMES_H_
#define BENCH_SEARCH_TIMES_H_

#include <cstddef>
#include <string>
#include <vector>

#include "bench/support/report.h"

namespace corvan_bench {

// Microseconds of processor time that all threads of the process have used.
double processor_time();

// Measured times, of which there is at least one where a figure is asked for.
class Times {
 public:
  void add(double time) { times_.push_back(time); }

  bool empty() const { return times_.empty(); }
  std::size_t count() const { return times_.size(); }
  double median() const { return percentile(50); }
  double percentile(double percent) const;
  double largest() const { return percentile(100); }
  double mean() const;

 private:
  std::vector<double> times_;
};

// A row with the name, the number of times, and their median, mean, 99th percentile and maximum.
Report::Row summary_row(const std::string& name, const Times& times);
std::vector<std::string> summary_columns(const std::string& first);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_TIMES_H_
