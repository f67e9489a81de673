#include "bench/encryption/bounds.h"

#include <array>

#include "bench/encryption/contenders.h"
#include "bench/encryption/workload.h"

namespace corvan_bench {

namespace {

struct Bound {
  const char* row;
  double limit;  // of the ratio, encrypted to plain
};

constexpr std::array kBounds = {
    Bound{kSave, 1.25}, Bound{kHistory, 1.2},   Bound{kHistoryAgain, 1.2},
    Bound{kList, 1.2},  Bound{kFileSize, 1.05},
};

constexpr double kOpeningMicroseconds = 1000;

}  // namespace

void bound_encryption(const std::string& store, const Figures& figures, Report& report) {
  report.bound(store + ": opening, encrypted - plain, microseconds",
               figures.at(kOpening, kEncrypted) - figures.at(kOpening, kPlain),
               kOpeningMicroseconds);
  for (const Bound& bound : kBounds) {
    report.bound(store + ": encrypted / plain, " + bound.row, figures.ratio(bound.row),
                 bound.limit);
  }
}

}  // namespace corvan_bench
