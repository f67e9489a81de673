#include "bench/search/bounds.h"

#include "bench/search/contender.h"

namespace corvan_bench {

namespace {

constexpr double kBuildingMicroseconds = 5;  // of processor time per message
constexpr double kFindMicroseconds = 2000;
constexpr double kSingleLetterMicroseconds = 10'000;
constexpr double kCatchUpMicroseconds = 150;  // of processor time for one message
constexpr double kOpeningMicroseconds = 2000;

bool is_library(const Building& building) {
  return building.contender.rfind(kLibrary, 0) == 0;
}

}  // namespace

void bound_results(const std::string& store, const Matches& matches, bool has_chinese,
                   Report& report) {
  report.bound(store + ": messages missed by the index, or found although they do not match",
               matches.differences(kLibrary, kScan, [](const SearchQuery&) { return true; }), 0);
  if (!has_chinese) return;
  report.bound(store + ": Chinese characters, differences from like",
               matches.differences(kLibrary, kLike,
                                   [](const SearchQuery& query) { return query.is_chinese(); }),
               0);
}

void bound_building(const std::string& store, const std::vector<Building>& buildings,
                    std::optional<double> bytes_per_message, Report& report) {
  for (const Building& building : buildings) {
    if (!is_library(building)) continue;
    const std::string what = store + ": " + building.contender;
    report.bound(what + ", processor time per message, us", building.processor.median(),
                 kBuildingMicroseconds);
    if (!bytes_per_message) continue;
    report.bound(what + ", bytes per message", building.bytes, *bytes_per_message);
    report.bound(what + ", bytes per message, settled", building.settled, *bytes_per_message);
  }
}

void bound_asking(const std::string& store, const Asked& asked, Report& report) {
  report.bound(store + ": newest 20, 99th percentile, us", asked.usual().percentile(99),
               kFindMicroseconds);
  report.bound(store + ": newest 20, one letter and *, 99th percentile, us",
               asked.of(QueryClass::kSingleLetter).percentile(99), kSingleLetterMicroseconds);
}

void bound_calls(const std::string& store, const SingleCalls& calls, Report& report) {
  report.bound(store + ": catch_up() of one message, processor time, mean, us",
               calls.catch_up_processor.mean(), kCatchUpMicroseconds);
  report.bound(store + ": catch_up() of one message, processor time, median, us",
               calls.catch_up_processor.median(), kCatchUpMicroseconds);
  report.bound(store + ": open(), median, us", calls.opening.median(), kOpeningMicroseconds);
}

}  // namespace corvan_bench
