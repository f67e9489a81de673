// Memory that ends: allocations of SQLite, and those of the code that is tested, fail when told to.
//
// Linking memory_faults.cpp replaces operator new, in all its forms, and what SQLite allocates
// with; both then pass on to the C library's as long as nothing is armed. SQLite keeps no memory of
// its own aside for small allocations: each one counts.

#ifndef TESTS_FAULTS_MEMORY_FAULTS_H_
#define TESTS_FAULTS_MEMORY_FAULTS_H_

#include <cstdint>

namespace corvan_test {

// Whose allocations.
enum class Memory { kSqlite, kOwn, kBoth };

// Lets the nth allocation from now on fail, and all that follow too unless it is only once; with
// `nth` 0 none. What is allocated while an Uncounted lives neither counts nor fails. For one
// thread.
void arm_memory(Memory memory, uint64_t nth, bool once);
void disarm_memory();

// Since the arming: the allocations, and those of them that failed.
uint64_t allocations();
uint64_t failed_allocations();

// The blocks of operator new that are in use.
int64_t own_blocks();

}  // namespace corvan_test

#endif  // TESTS_FAULTS_MEMORY_FAULTS_H_
