#ifndef BENCH_ENCRYPTION_BOUNDS_H_
#define BENCH_ENCRYPTION_BOUNDS_H_

#include <string>

#include "bench/encryption/figures.h"
#include "bench/support/report.h"

namespace corvan_bench {

// Bounds what encryption with 32 bytes costs Corvan::db. `store` says which store was measured.
void bound_encryption(const std::string& store, const Figures& figures, Report& report);

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_BOUNDS_H_
