// The store, and checks of its results, for the measured calls.

#ifndef BENCH_GROWTH_CALLS_H_
#define BENCH_GROWTH_CALLS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/growth/filled_store.h"
#include "db/cv_db_singleton.h"

namespace corvan_bench {

Corvan::CvDbSingleton& store();

void verify(bool holds, const std::string& what);

constexpr int64_t kLatest = int64_t{1} << 60;  // later than every message

// A kind that no conversation of the benchmark has.
constexpr Corvan::SessionType kNoSuchKind = Corvan::CV_RECEPTION;

inline const std::vector<Corvan::SessionType> kTwoKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};

// Reads a page of history, or of the conversation list, which must have `rows` rows.
void expect_page(const Target& t, int64_t before, bool desc, const std::vector<std::string>& kinds,
                 std::size_t rows);
void expect_list(const std::vector<Corvan::SessionType>& kinds, int64_t before, std::size_t rows);

}  // namespace corvan_bench

#endif  // BENCH_GROWTH_CALLS_H_
