// Makes allocations of SQLite and of the tested code fail.
//
// Linking memory_faults.cpp replaces every form of operator new, and SQLite's allocator. Both call
// the C library while nothing is armed. SQLite's lookaside memory is off, so that each small
// allocation counts.

#ifndef TESTS_FAULTS_MEMORY_FAULTS_H_
#define TESTS_FAULTS_MEMORY_FAULTS_H_

#include <cstdint>

namespace corvan_test {

// Whose allocations fail.
enum class Memory { kSqlite, kOwn, kBoth };

// From now on, makes the nth allocation fail and, unless `once`, all later ones. If `nth` is 0,
// none fails. Allocations while an Uncounted exists neither count nor fail. For use by one thread
// only.
void arm_memory(Memory memory, uint64_t nth, bool once);
void disarm_memory();

// Since arm_memory(): the number of allocations, and of those that failed.
uint64_t allocations();
uint64_t failed_allocations();

// The blocks of operator new that are in use.
int64_t own_blocks();

}  // namespace corvan_test

#endif  // TESTS_FAULTS_MEMORY_FAULTS_H_
