#include "bench/peers/bounds.h"

#include <algorithm>
#include <array>

#include "bench/peers/contenders.h"

namespace corvan_bench {

namespace {

struct Bound {
  const char* work;  // the beginning of the row's name
  double limit;      // of the time at most, of the rate at least
  bool is_rate = false;
};

constexpr double kAhead = 1;
constexpr double kOneSync = 1.1;  // a sync takes most of the time, and differs by that much

constexpr std::array kBounds = {
    Bound{"replay, 1,000 messages a transaction", 0.85, true},
    Bound{"opening and closing", kAhead},
    Bound{"first page of the conversation list", kAhead},
    Bound{"20 messages of history", kAhead},
    Bound{"unread messages in all", kAhead},
    Bound{"ten newest mentions", kAhead},
    Bound{"marking a conversation read", kOneSync},
    // From six trees, in place of the draft's four; docs/performance.md has the measurements.
    Bound{"deleting 100 messages by id", 1.9},
    Bound{"replay, one message a transaction", 1.11},
};

const Report::Row& row_of(const Bound& bound, const std::vector<Report::Row>& work) {
  const auto found = std::find_if(work.begin(), work.end(), [&bound](const Report::Row& row) {
    return row.front().get<std::string>().rfind(bound.work, 0) == 0;
  });
  Report::verify(found != work.end(), std::string("there is a row: ") + bound.work);
  return *found;
}

}  // namespace

void bound_cached(const std::vector<std::string>& columns, const std::vector<Report::Row>& work,
                  Report& report) {
  const auto column = [&columns](const char* contender) {
    return static_cast<std::size_t>(std::find(columns.begin(), columns.end(), contender) -
                                    columns.begin());
  };
  const std::size_t cached = column(kCorvanCached);
  const std::size_t peer = column(kSqliteCppIndexed);
  if (cached == columns.size() || peer == columns.size()) return;
  for (const Bound& bound : kBounds) {
    const Report::Row& row = row_of(bound, work);
    const double ratio = row[cached].get<double>() / row[peer].get<double>();
    const std::string what =
        std::string(kCorvanCached) + " / " + kSqliteCppIndexed + ", " + bound.work;
    if (bound.is_rate) {
      report.bound_below(what + ", rate", ratio, bound.limit);
    } else {
      report.bound(what, ratio, bound.limit);
    }
  }
}

}  // namespace corvan_bench
