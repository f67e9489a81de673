#ifndef BENCH_SUPPORT_OPTIONS_H_
#define BENCH_SUPPORT_OPTIONS_H_

#include <string>

namespace corvan_bench {

// The command-line options of every benchmark.
struct Options {
  std::string json;    // file for the results; empty: none
  bool quick = false;  // the smallest sizes, as a test of the benchmark
  bool full = false;   // also the largest sizes
};

// Ends the process with a message on standard error and status 2 if the command line is wrong, and
// with status 0 after "--help".
Options parse_options(int argc, char** argv);

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_OPTIONS_H_
