// Applies the repairs of findings to a store: corvan verify --repair.

#ifndef TOOLS_VERIFY_REPAIR_REPAIR_H_
#define TOOLS_VERIFY_REPAIR_REPAIR_H_

#include <string>
#include <vector>

namespace corvan_tool {

struct RepairOptions {
  std::string folder;
  std::vector<std::string> what;  // words of --repair
  std::string backup;             // the folder to create; empty for one beside the store's
  bool dry_run = false;
  bool json = false;
};

// Repairs a store, and prints each change and each column that was left. Copies the store first,
// and makes all changes in one transaction or none. Returns the exit status: kNegative if a column
// was left. Throws ToolError if the store is damaged or locked, or cannot be written.
int run_repair(const RepairOptions& options);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPAIR_REPAIR_H_
