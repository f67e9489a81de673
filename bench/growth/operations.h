#ifndef BENCH_GROWTH_OPERATIONS_H_
#define BENCH_GROWTH_OPERATIONS_H_

#include <functional>
#include <string>
#include <vector>

#include "bench/growth/filled_store.h"

namespace corvan_bench {

// One call of an operation on an open store. It checks what it returns.
struct Operation {
  std::string name;
  std::function<void()> run;
};

// Reads of one conversation.
std::vector<Operation> reads(const Target& target);
// Reads that are not about one conversation.
std::vector<Operation> store_reads(FilledStore& filled);
// Writes of a fixed number of rows.
std::vector<Operation> writes(FilledStore& filled, const Target& target);
// Sums over all conversations, with the nanoseconds that each may take per conversation.
struct Sum {
  Operation operation;
  double at_most;
};
std::vector<Sum> sums();

// An operation whose time grows with what is stored, and the reason. Measured at the largest size.
struct Exception {
  std::string operation;
  std::string reason;
  std::string unit;  // what the time grows with, such as "message"
  int64_t count;     // of these units
  double at_most;    // nanoseconds per unit
  std::function<void()> run;
};
std::vector<Exception> exceptions(FilledStore& filled);

}  // namespace corvan_bench

#endif  // BENCH_GROWTH_OPERATIONS_H_
