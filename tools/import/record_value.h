// Reads the values of records; tools/store/export_format.h describes the format.

#ifndef TOOLS_IMPORT_RECORD_VALUE_H_
#define TOOLS_IMPORT_RECORD_VALUE_H_

#include <sqlite3.h>

#include <string>

#include "tools/store/export_format.h"
#include "tools/ui/json.h"

namespace corvan_tool {

// Binds a value, which must stay valid until the statement has run. Returns an empty text, or what
// is wrong with the value; nothing is bound then. Sets `needs_check` if SQLite could convert the
// value to another type when it stores it.
std::string bind_value(sqlite3_stmt* stmt, int place, const Json& value, const ExportColumn& column,
                       bool& needs_check);

// Whether a JSON number is a whole number that fits into a signed 64-bit integer.
bool is_whole(const Json& value);

// The type that SQLite must give to a stored value that bind_value() accepted: "null", "integer",
// "real", "text" or "blob".
const char* type_of(const Json& value, const ExportColumn& column);

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_RECORD_VALUE_H_
