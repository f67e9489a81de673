#ifndef BENCH_SEARCH_BOUNDS_H_
#define BENCH_SEARCH_BOUNDS_H_

#include <optional>
#include <string>
#include <vector>

#include "bench/search/asking.h"
#include "bench/search/building.h"
#include "bench/search/recall.h"
#include "bench/search/single_calls.h"
#include "bench/support/report.h"

namespace corvan_bench {

// Results must be right, in every run.
void bound_results(const std::string& store, const Matches& matches, bool has_chinese,
                   Report& report);

// Bounds bytes, of a store for which there is a bound, and times.
void bound_building(const std::string& store, const std::vector<Building>& buildings,
                    std::optional<double> bytes_per_message, Report& report);
void bound_asking(const std::string& store, const Asked& asked, Report& report);
void bound_calls(const std::string& store, const SingleCalls& calls, Report& report);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_BOUNDS_H_
