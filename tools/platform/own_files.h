// Files that this process has open, on Windows.

#ifndef TOOLS_PLATFORM_OWN_FILES_H_
#define TOOLS_PLATFORM_OWN_FILES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace corvan_tool {

// Closes all files of this process at or below these paths, so that they can be deleted: SQLite's
// files cannot be deleted while they are open. The names of the paths must be unique. Before that,
// suspends all threads except the calling one and `spared` for good, because a file that they open
// could get the handle of a closed one. Call this only before the process ends.
void release_own_files(const std::vector<std::string>& paths, std::uint32_t spared);

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_OWN_FILES_H_
