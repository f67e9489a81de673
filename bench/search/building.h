#ifndef BENCH_SEARCH_BUILDING_H_
#define BENCH_SEARCH_BUILDING_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bench/search/contender.h"
#include "bench/search/times.h"
#include "bench/support/report.h"

namespace corvan_bench {

// What it takes to index a store, and what the index takes.
struct Building {
  std::string contender;
  Times processor;  // microseconds per message, one for each round
  Times elapsed;
  double bytes = 0;    // per message, after building
  double settled = 0;  // after settling
};

// Builds the index of each contender that has one; they take turns in each round. Afterwards each
// has its index.
std::vector<Building> build(const std::vector<Contender*>& contenders, int rounds,
                            int64_t messages);

void print(const std::vector<Building>& buildings, const std::string& store, Report& report);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_BUILDING_H_
