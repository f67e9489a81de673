// Instruction counting by Valgrind's callgrind.

#ifndef BENCH_FLOOR_CALLGRIND_H_
#define BENCH_FLOOR_CALLGRIND_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace corvan_bench {

// Counts the instructions of `function` under `name`. Only in a process that run_under_callgrind()
// started.
void count_instructions(const std::string& name, const std::function<void()>& function);

// Runs this program again under callgrind, with these arguments, and returns the counted
// instructions by name. Valgrind writes its files to `folder`. Throws std::runtime_error if the run
// fails.
std::map<std::string, int64_t> run_under_callgrind(const std::string& folder,
                                                   const std::vector<std::string>& arguments);

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_CALLGRIND_H_
