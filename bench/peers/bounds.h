#ifndef BENCH_PEERS_BOUNDS_H_
#define BENCH_PEERS_BOUNDS_H_

#include <string>
#include <vector>

#include "bench/support/report.h"

namespace corvan_bench {

// Bounds the times of the store with kept statements against SQLiteCpp with all indexes, which
// keeps its statements too and runs on the same SQLite. `columns` are those of the table of work,
// `work` has its rows, with lower quartiles. Without one of the two contenders there is no bound.
void bound_cached(const std::vector<std::string>& columns, const std::vector<Report::Row>& work,
                  Report& report);

}  // namespace corvan_bench

#endif  // BENCH_PEERS_BOUNDS_H_
