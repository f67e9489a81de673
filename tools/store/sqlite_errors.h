// Error texts for failures of SQLite.

#ifndef TOOLS_STORE_SQLITE_ERRORS_H_
#define TOOLS_STORE_SQLITE_ERRORS_H_

#include <string>

namespace corvan_tool {

class Connection;

// Whether the code means that the file is damaged or not a database.
bool is_damage(int rc);

// Advice to append to an error from reading a snapshot; empty if there is none.
const char* advice_after(int rc);

// SQLite's text for a failure on a store's own file, then `outcome`, which says what happened to
// the store, then advice if there is any.
std::string failure_text(const Connection& connection, int rc, const std::string& outcome);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SQLITE_ERRORS_H_
