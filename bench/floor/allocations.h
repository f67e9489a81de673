#ifndef BENCH_FLOOR_ALLOCATIONS_H_
#define BENCH_FLOOR_ALLOCATIONS_H_

#include <cstdint>

namespace corvan_bench {

// Allocations through operator new in this process, without SQLite's own.
struct Allocations {
  int64_t count = 0;
  int64_t bytes = 0;
};
Allocations allocations();

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_ALLOCATIONS_H_
