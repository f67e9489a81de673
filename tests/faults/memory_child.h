// Work in processes of its own, which may end in any way.

#ifndef TESTS_FAULTS_MEMORY_CHILD_H_
#define TESTS_FAULTS_MEMORY_CHILD_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvan_test {

// What came of the work on one point.
struct ChildReport {
  bool failed = false;    // the fault took place
  bool aborted = false;   // the process ended otherwise than it should
  std::string complaint;  // empty when all was as it has to be
};

// Works on each of the points, in order, and gives a report for each. A few points share a forked
// process; one that ends on the way is that point's complaint, and the next point has a new
// process. Processes leave by exit(), so that a leak checker has its say: after a leak each of the
// points is worked on once more, alone.
std::vector<ChildReport> in_children(const std::vector<uint64_t>& points,
                                     const std::function<ChildReport(uint64_t)>& work);

}  // namespace corvan_test

#endif  // TESTS_FAULTS_MEMORY_CHILD_H_
