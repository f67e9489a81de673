// The schema of a file, and how it differs from the schema of a new store.

#ifndef TOOLS_STORE_SCHEMA_H_
#define TOOLS_STORE_SCHEMA_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvan_tool {

class Connection;

struct Index {
  std::string name;
  std::string table;
  std::string sql;  // the statement that creates it
};

struct Table {
  std::string name;
  std::string sql;                 // the statement that creates it
  std::vector<std::string> parts;  // by read_parts(): columns and keys in words, sorted
};

struct Schema {
  std::vector<Table> tables;
  std::vector<Index> indexes;

  // Null if there is none of that name. Letter case does not count.
  const Table* table(const std::string& name) const;
  const Index* index(const std::string& name) const;
};

// The functions below return SQLITE_DONE, or the code of the failure.

// Reads the tables and indexes of a file, by name. Leaves out SQLite's own tables, and indexes that
// are part of a table.
int read_schema(const Connection& connection, Schema& schema);

int read_parts(const Connection& connection, Table& table);

// Reads the names of all columns, generated and hidden ones included, in lower case. A missing
// table has none.
int read_columns(const Connection& connection, const std::string& table,
                 std::vector<std::string>& names);

// Finds the name by which SQL reads a table's row ids: "rowid" unless a column has that name. Empty
// if columns have all three possible names, or if the table is WITHOUT ROWID.
int find_row_id(const Connection& connection, const std::string& table, std::string& name);

// SQL for the name of t_message as the file spells it. sqlite_sequence holds the largest id under
// that name, and compares it with letter case.
constexpr const char* kNameOfMessages =
    "(select name from sqlite_master where type='table' and lower(name)='t_message')";

// The size of a table or an index in bytes; nothing if SQLite was built without dbstat.
std::optional<int64_t> stored_bytes(const Connection& connection, const std::string& name);

// Error text for a table whose row ids find_row_id() could not name, with advice.
std::string no_row_id_text(const std::string& table);

// Whether two statements create the same table or index: they may differ in letter case and in
// white space outside of quotes. Statements with comments must be equal.
bool is_same_statement(const std::string& one, const std::string& other);

// An index in which a file differs from a new store.
struct IndexDifference {
  enum Kind {
    kMissing,  // only in a new store
    kDiffers,  // in both, with different statements
    kOlder,    // only in the file, named like the store's own: from an older release
    kOther,    // only in the file, with any other name: of another program
  };
  Kind kind = kMissing;
  Index index;          // kOlder and kOther: as in the file; otherwise as in a new store
  std::string old_sql;  // kDiffers: as in the file
};

// The differences on the store's tables: first indexes of a new store, then the file's others.
// `kept` receives the number of indexes that are equal.
std::vector<IndexDifference> index_differences(const Schema& wanted, const Schema& present,
                                               std::size_t& kept);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SCHEMA_H_
