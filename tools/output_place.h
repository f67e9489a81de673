// Where a command may put what it makes.

#ifndef TOOLS_OUTPUT_PLACE_H_
#define TOOLS_OUTPUT_PLACE_H_

#include <string>

namespace corvan_tool {

// Throws ToolError when `place`, whose parent folder exists, has the name of a store's file in a
// folder that holds a store, or the name of a log, its index or a journal beside any database.
// SQLite would delete what it finds there, or refuse to open the database.
void require_no_store_file(const std::string& place);

}  // namespace corvan_tool

#endif  // TOOLS_OUTPUT_PLACE_H_
