// Where a command may write its output.

#ifndef TOOLS_STORE_OUTPUT_PLACE_H_
#define TOOLS_STORE_OUTPUT_PLACE_H_

#include <string>

namespace corvan_tool {

// Throws ToolError if `place` has the name of a log, a log's index or a journal of a store or of
// any database beside it, or the name of a store in a folder that holds one. SQLite would delete
// such output, or refuse to open the database.
void require_no_store_file(const std::string& place);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_OUTPUT_PLACE_H_
