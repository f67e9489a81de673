// Runs all checks of a store, and collects what they find.

#ifndef TOOLS_VERIFY_CHECKS_H_
#define TOOLS_VERIFY_CHECKS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/verify/findings.h"

namespace corvan_tool {

class Connection;

struct Report {
  std::vector<Finding> findings;  // in the order in which --repair applies them
  int64_t sessions = 0;
  int64_t messages = 0;
  std::string session_row_id;  // the name of t_session's row ids in SQL; empty if none
  bool damaged = false;        // the file is damaged
  bool complete = false;       // all rows could be read

  int64_t count(Rank rank) const;
  // Whether there are findings other than notes.
  bool found_any() const { return count(Rank::kImpossible) + count(Rank::kAllowed) > 0; }
};

// Checks the whole file. Throws ToolError, which begins with `name`, if the file cannot be read for
// another reason than damage.
Report check_store(const Connection& connection, const std::string& name);

// The report on a file that SQLite refuses as damaged; `detail` is SQLite's text.
Report report_damage(const std::string& detail);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_CHECKS_H_
