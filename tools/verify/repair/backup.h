// The copy of a store that --repair makes before it changes anything.

#ifndef TOOLS_VERIFY_REPAIR_BACKUP_H_
#define TOOLS_VERIFY_REPAIR_BACKUP_H_

#include <string>

namespace corvan_tool {

class Progress;

// A path beside the store's folder at which nothing exists yet, with the time in its name. Throws
// ToolError if there is none.
std::string backup_place(const std::string& folder);

// Copies the committed state of the database `file` to the new file `to`. `progress` counts pages.
// Throws ToolError if that fails.
void copy_committed(const std::string& file, const std::string& to, Progress& progress);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPAIR_BACKUP_H_
