#ifndef BENCH_FLOOR_VERIFICATION_H_
#define BENCH_FLOOR_VERIFICATION_H_

#include <string>

namespace corvan_bench {

// Runs each operation of each contender on a copy of the fixture in `fixture_folder`. Throws
// std::runtime_error unless all contenders run the same statements in the same order, return the
// same results and leave the same rows.
void verify_contenders(const std::string& fixture_folder);

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_VERIFICATION_H_
