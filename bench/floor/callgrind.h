// Instruction counting by Valgrind's callgrind.

#ifndef BENCH_FLOOR_CALLGRIND_H_
#define BENCH_FLOOR_CALLGRIND_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvan_bench {

// Inside a process that run_under_callgrind() started: counts what `function` takes, under `name`.
void count_instructions(const std::string& name, const std::function<void()>& function);

// Runs this program again, with these arguments, under callgrind; the instructions counted there,
// by name. Valgrind's files go into `folder`. Throws std::runtime_error when the run fails.
std::map<std::string, int64_t> run_under_callgrind(const std::string& folder,
                                                   const std::vector<std::string>& arguments);

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_CALLGRIND_H_
