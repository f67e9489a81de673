#ifndef BENCH_ENCRYPTION_INSTRUCTIONS_H_
#define BENCH_ENCRYPTION_INSTRUCTIONS_H_

#include <map>
#include <string>

#include "bench/encryption/contenders.h"
#include "bench/encryption/figures.h"
#include "bench/encryption/workload.h"

namespace corvan_bench {

// Counts the instructions of each operation for the contenders with the measured cipher. `files`
// has the file of each, by name, filled with these sizes and closed. Saves include their commits.
// What the system does is not counted.
Figures instructions_of(const std::map<std::string, std::string>& files, const Sizes& sizes);

// What instructions_of() runs in processes of its own: see callgrind.h. `arguments` are those of
// this program. Returns false if they do not ask for it.
bool count_if_asked(int argc, char** argv);

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_INSTRUCTIONS_H_
