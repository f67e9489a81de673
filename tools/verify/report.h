// Prints what verify found.

#ifndef TOOLS_VERIFY_REPORT_H_
#define TOOLS_VERIFY_REPORT_H_

#include "tools/verify/checks.h"

namespace corvan_tool {

// Both print the findings in the order of kRules, then by conversation and name.
void print_report(const Report& report);
void print_report_json(const Report& report);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPORT_H_
