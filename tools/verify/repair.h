// corvan verify --repair: mends what the rest of a store tells.

#ifndef TOOLS_VERIFY_REPAIR_H_
#define TOOLS_VERIFY_REPAIR_H_

#include <string>
#include <vector>

namespace corvan_tool {

struct RepairOptions {
  std::string folder;
  std::vector<std::string> what;  // of the words that findings name
  std::string backup;             // the folder to make; empty for one beside the store's
  bool dry_run = false;
  bool json = false;
};

// Tells each change, and what is left. All of it is made, in one transaction, or nothing, and the
// store as it was is copied first. Returns the exit status: kNegative when something that a word
// stands for could not be judged, and so was left. Throws ToolError when the store is damaged,
// locked, or cannot be written.
int run_repair(const RepairOptions& options);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPAIR_H_
