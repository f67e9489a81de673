// The tables of a database whose rows can be read and written.

#ifndef ADDONS_ENCRYPTION_CONTENT_TABLES_H_
#define ADDONS_ENCRYPTION_CONTENT_TABLES_H_

#include <string>
#include <vector>

#include "addons/encryption/database.h"

namespace Corvan::encryption {

struct ContentTable {
  std::string name;
  std::vector<std::string> columns;  // quoted; the row id first if there is one
  std::string order;                 // the end of a query that orders the rows by their row ids
};

// Ordinary tables, in the order in which they were created; SQLite's own tables and virtual ones
// are left out.
std::vector<ContentTable> ordinary_tables(const Database& database);

// The table with this name, or nothing if it does not exist.
std::vector<ContentTable> table_if_any(const Database& database, const std::string& name);

// Reads all rows of the table, with its columns.
std::string select_rows(const ContentTable& table);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_CONTENT_TABLES_H_
