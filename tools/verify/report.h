// All that verify finds in a store.

#ifndef TOOLS_VERIFY_REPORT_H_
#define TOOLS_VERIFY_REPORT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/verify/findings.h"
#include "tools/verify/row_checks.h"

namespace corvan_tool {

class Connection;

struct Report {
  std::vector<Finding> findings;  // in the order of all_kinds_of_finding()
  std::vector<SessionRow> sessions;
  std::string session_row_id;  // see RowFindings
  int64_t messages = 0;
  bool damaged = false;   // the file itself
  bool complete = false;  // all rows could be looked at

  std::size_t count(Rank rank) const;
  // Something besides notes was found.
  bool found_any() const { return count(Rank::kImpossible) + count(Rank::kAllowed) > 0; }
};

// Looks at the whole file. Throws ToolError, which begins with `name`, when it cannot be read for
// another reason than damage.
Report look_at_all(const Connection& connection, const std::string& name);

// Of a file that SQLite does not take for a database, in its words.
Report damaged_file(const std::string& detail);

void print_report(const Report& report);
void print_report_json(const Report& report);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPORT_H_
