// What a new store's file is made of, and where another file differs.

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
  std::string sql;  // the statement that makes it
};

struct Table {
  std::string name;
  std::string sql;                 // the statement that makes it
  std::vector<std::string> parts;  // each column and key in words, sorted, once they were read
};

struct Schema {
  std::vector<Table> tables;
  std::vector<Index> indexes;

  // Null when there is none of that name, in whatever case.
  const Table* table(const std::string& name) const;
  const Index* index(const std::string& name) const;
};

// What a new store has, with the parts of its tables. Throws ToolError when this SQLite cannot make
// it.
Schema new_schema();

// A file's tables, without SQLite's own, and its indexes without those that are part of a table,
// both by name: SQLITE_DONE, or the code of the failure.
int read_schema(const Connection& connection, Schema& schema);

// Likewise a table's parts.
int read_parts(const Connection& connection, Table& table);

// Likewise the names of all columns of a table, generated and hidden ones included, in lower case
// as SQL compares them. A table that is not there has none.
int read_columns(const Connection& connection, const std::string& table,
                 std::vector<std::string>& names);

// Likewise the name by which SQL reads a table's row ids: "rowid" unless a column has that name.
// Empty when columns have all three such names, or the table is WITHOUT ROWID.
int find_row_id(const Connection& connection, const std::string& table, std::string& name);

// SQL for the name of t_message in the letters' case of the file. SQLite looks for the largest id
// under that name in sqlite_sequence, and there the case counts.
constexpr const char* kNameOfMessages =
    "(select name from sqlite_master where type='table' and lower(name)='t_message')";

// The bytes that a table or an index takes; nothing where SQLite was built without its table of
// sizes.
std::optional<int64_t> stored_bytes(const Connection& connection, const std::string& name);

// Error text for a table whose row ids find_row_id() could not name, with advice.
std::string no_row_id_text(const std::string& table);

// Whether two statements make the same table or index: they then differ at most in the case of
// letters and in white space, and only outside of quotes. In doubt, as with comments, they must be
// equal.
bool is_same_statement(const std::string& one, const std::string& other);

// An index in which a file differs from a new store.
struct IndexDifference {
  enum Kind {
    kMissing,
    kDiffers,  // of a name that a new store has, made by another statement
    kOlder,    // not in a new store, named like its own: from an older set
    kOther,    // not in a new store, of any other name: somebody else's
  };
  Kind kind = kMissing;
  Index index;          // as a new store has it; of the last two kinds, as the file has it
  std::string old_sql;  // of one that differs
};

// The differences on the store's tables, those that a new store lacks at the end. `kept` receives
// how many indexes are as in a new store.
std::vector<IndexDifference> index_differences(const Schema& wanted, const Schema& present,
                                               std::size_t& kept);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SCHEMA_H_
