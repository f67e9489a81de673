// Prints what --repair did.

#ifndef TOOLS_VERIFY_REPAIR_REPORT_H_
#define TOOLS_VERIFY_REPAIR_REPORT_H_

#include <string>

#include "tools/verify/repair/plan.h"

namespace corvan_tool {

// `backup` is the folder with the copy of the original store; empty if none was made.
void print_repair(const RepairPlan& plan, const std::string& backup, bool dry_run);
void print_repair_json(const RepairPlan& plan, const std::string& backup, bool dry_run);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPAIR_REPORT_H_
