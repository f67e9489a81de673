// The figures of one kind, by row and contender.

#ifndef BENCH_ENCRYPTION_FIGURES_H_
#define BENCH_ENCRYPTION_FIGURES_H_

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/support/report.h"

namespace corvan_bench {

class Figures {
 public:
  // Rows are printed in the order in which they were first set.
  void set(const std::string& row, const std::string& contender, double value);

  double at(const std::string& row, const std::string& contender) const;
  // Of the encrypted contender to the plain one.
  double ratio(const std::string& row) const;

  // Prints the contenders with the measured cipher, and the others.
  void print(Report& report, const std::string& title) const;
  void print_others(Report& report, const std::string& title) const;

 private:
  // A plain contender, an encrypted one, and what the ratio of the two is called.
  struct Pair {
    const char* plain;
    const char* encrypted;
    const char* ratio;
  };

  Report::Cell cell(const std::string& row, const std::string& contender) const;
  Report::Cell ratio_cell(const std::string& row, const Pair& pair) const;
  void print_pairs(Report& report, const std::string& title, std::vector<std::string> columns,
                   const std::vector<Pair>& pairs) const;

  std::vector<std::string> rows_;
  std::map<std::pair<std::string, std::string>, double> values_;
};

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_FIGURES_H_
