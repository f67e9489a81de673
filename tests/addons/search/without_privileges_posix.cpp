#include "tests/addons/search/without_privileges.h"

#include "tests/faults/memory_child.h"
#include "tests/support/privileges.h"

namespace corvan_test {

std::string without_privileges(const std::function<std::string()>& work) {
  const auto reports = in_children({0}, [&](uint64_t) {
    ChildReport report;
    report.complaint = drop_privileges() ? work() : "cannot drop privileges";
    return report;
  });
  return reports.front().complaint;
}

}  // namespace corvan_test
