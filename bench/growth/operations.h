#ifndef BENCH_GROWTH_OPERATIONS_H_
#define BENCH_GROWTH_OPERATIONS_H_

#include <functional>
#include <string>
#include <vector>

#include "bench/growth/filled_store.h"

namespace corvan_bench {

// One call of an operation on an open store. What it returns is checked.
struct Operation {
  std::string name;
  std::function<void()> run;
};

// Those that read, on one conversation.
std::vector<Operation> reads(const Target& target);
// Those that read and look at no one conversation.
std::vector<Operation> store_reads(FilledStore& filled);
// Those that write a fixed number of rows.
std::vector<Operation> writes(FilledStore& filled, const Target& target);
// The sums over all conversations, with the nanoseconds that each may take for one.
struct Sum {
  Operation operation;
  double at_most;
};
std::vector<Sum> sums();

// What grows with its input, and with what: named with its reason, measured at the largest size.
struct Exception {
  std::string operation;
  std::string reason;
  std::string unit;  // what the time is divided by
  int64_t count;     // of these
  double at_most;    // nanoseconds for each
  std::function<void()> run;
};
std::vector<Exception> exceptions(FilledStore& filled);

}  // namespace corvan_bench

#endif  // BENCH_GROWTH_OPERATIONS_H_
