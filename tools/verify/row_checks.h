// What the rows of a store say against one another.

#ifndef TOOLS_VERIFY_ROW_CHECKS_H_
#define TOOLS_VERIFY_ROW_CHECKS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/verify/findings.h"
#include "tools/verify/session_checks.h"

namespace corvan_tool {

class Connection;

struct RowFindings {
  std::vector<Finding> findings;
  std::vector<SessionRow> sessions;
  std::string session_row_id;  // the name of the row ids of t_session in SQL; empty: it has none
  int64_t messages = 0;
  int64_t largest_id = 0;  // of a message
  bool complete = true;    // every row could be read
};

// Reads each row once, and t_message again for what needs an order of its own. Throws ToolError,
// which begins with `name`, when reading fails for another reason than damage.
RowFindings look_at_rows(const Connection& connection, const std::string& name);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_ROW_CHECKS_H_
