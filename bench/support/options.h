#ifndef BENCH_SUPPORT_OPTIONS_H_
#define BENCH_SUPPORT_OPTIONS_H_

#include <string>

namespace corvan_bench {

// What every benchmark takes on its command line.
struct Options {
  std::string json;    // file for the results; empty for none
  bool quick = false;  // the smallest sizes, to see that the benchmark works
  bool full = false;   // the largest sizes, too
};

// Ends the process with a line on standard error and status 2 when the command line is wrong, with
// status 0 after "--help".
Options parse_options(int argc, char** argv);

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_OPTIONS_H_
