// Where a command may put what it makes.

#ifndef TOOLS_STORE_OUTPUT_PLACE_H_
#define TOOLS_STORE_OUTPUT_PLACE_H_

#include <string>

namespace corvan_tool {

// Throws ToolError when `place` has the name of a store's log, its index or its journal, or of one
// beside any database, or that of a store in a folder that holds one. SQLite would delete what it
// finds there, or refuse to open the database.
void require_no_store_file(const std::string& place);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_OUTPUT_PLACE_H_
