#ifndef BENCH_SUPPORT_REPORT_H_
#define BENCH_SUPPORT_REPORT_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/support/options.h"

namespace corvan_bench {

// The results of one benchmark, printed as tables at once and written as JSON at the end.
class Report {
 public:
  // A text, a count or a measured number, which is printed with three significant digits.
  using Cell = nlohmann::ordered_json;
  using Row = std::vector<Cell>;

  Report(std::string benchmark, Options options);

  // Prints a table. Each row has one cell per column.
  void table(const std::string& title, const std::vector<std::string>& columns,
             const std::vector<Row>& rows);

  // Prints a bound and whether it holds. If it does not, finish() returns 1.
  void bound(const std::string& what, double measured, double at_most);
  void bound_below(const std::string& what, double measured, double at_least);

  // Throws std::runtime_error if a condition of the benchmark does not hold.
  static void verify(bool holds, const std::string& what);

  // Writes the JSON file if one was requested, and returns the exit status of the benchmark.
  int finish();

 private:
  void add_bound(const std::string& what, double measured, const char* sign, double limit,
                 bool holds);

  Options options_;
  nlohmann::ordered_json results_;
  bool failed_ = false;
};

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_REPORT_H_
