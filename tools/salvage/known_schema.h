// The tables and indexes of a new store, which are all that salvage looks for, and what their
// records look like.

#ifndef TOOLS_SALVAGE_KNOWN_SCHEMA_H_
#define TOOLS_SALVAGE_KNOWN_SCHEMA_H_

#include <cstddef>
#include <string>
#include <vector>

namespace corvan_tool {

// A shape describes the columns of a record with one letter each.
constexpr char kRowIdShape = 'r';  // an alias of the row id: NULL in the record
constexpr char kIntegerShape = 'i';
constexpr char kTextShape = 't';

struct KnownTable {
  std::string name;
  std::string sql;                   // empty for sqlite_sequence
  std::vector<std::string> columns;  // without the alias of the row id
  std::string shape;                 // of the records, with that alias
  std::vector<std::string> unique;   // the key besides the row id; may be empty
};

struct KnownIndex {
  std::string name;
  std::string sql;                   // empty if the index is part of its table
  std::size_t table = 0;             // place in KnownSchema::tables
  std::vector<std::string> columns;  // without the row id, which is the last value of an entry
  std::string shape;                 // of the entries, with the row id
  bool has_all_rows = true;
  bool has_unique_shape = true;  // no other index has the same shape
};

struct KnownSchema {
  std::vector<KnownTable> tables;  // sqlite_sequence is the last
  std::vector<KnownIndex> indexes;
  // Places in `tables`.
  std::size_t messages = 0;
  std::size_t sessions = 0;
  std::size_t versions = 0;
  std::size_t sequences = 0;

  std::size_t place_of(const KnownIndex& index) const {
    return static_cast<std::size_t>(&index - indexes.data());
  }
};

// Throws ToolError if this SQLite cannot create a new store.
KnownSchema known_schema();

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_KNOWN_SCHEMA_H_
