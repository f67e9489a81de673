// Runs work in child processes, which may end in any way.

#ifndef TESTS_FAULTS_MEMORY_CHILD_H_
#define TESTS_FAULTS_MEMORY_CHILD_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvan_test {

// The result of the work on one point.
struct ChildReport {
  bool failed = false;    // the fault took place
  bool aborted = false;   // the process did not exit normally
  std::string complaint;  // empty if nothing is wrong
};

// Works on the points in order and returns a report for each. A few points share a forked process.
// If a process dies at a point, that point has a complaint, and the next point gets a new process.
// Processes end with exit(), so that a leak checker runs. After a leak each point is worked on
// again, alone.
std::vector<ChildReport> in_children(const std::vector<uint64_t>& points,
                                     const std::function<ChildReport(uint64_t)>& work);

}  // namespace corvan_test

#endif  // TESTS_FAULTS_MEMORY_CHILD_H_
