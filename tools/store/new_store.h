// The schema that the library gives to a new store.

#ifndef TOOLS_STORE_NEW_STORE_H_
#define TOOLS_STORE_NEW_STORE_H_

#include <string>
#include <vector>

#include "tools/store/schema.h"

namespace corvan_tool {

// The schema of a new store, with the parts of its tables. Throws ToolError if this SQLite cannot
// create it.
Schema new_schema();

// The columns of a new store's tables and indexes, for code that reads records without SQLite.
struct ColumnLayout {
  std::string name;
  std::string type;        // in lower case
  bool is_row_id = false;  // an alias of the row id
};
struct IndexLayout {
  std::string name;
  std::string sql;                   // empty if it is part of its table
  std::vector<std::string> columns;  // without the row id, which follows them in each entry
  bool has_all_rows = true;          // not a partial index
};
struct TableLayout {
  std::string name;
  std::string sql;
  std::vector<ColumnLayout> columns;
  std::vector<IndexLayout> indexes;  // those that are part of the table included
};

// Throws ToolError if this SQLite cannot create a new store.
std::vector<TableLayout> new_store_layout();

}  // namespace corvan_tool

#endif  // TOOLS_STORE_NEW_STORE_H_
