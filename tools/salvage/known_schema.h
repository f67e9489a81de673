// The tables and indexes of a new store, which are all that salvage looks for, and the shapes by
// which it recognises their records.

#ifndef TOOLS_SALVAGE_KNOWN_SCHEMA_H_
#define TOOLS_SALVAGE_KNOWN_SCHEMA_H_

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "tools/salvage/file/page.h"
#include "tools/salvage/file/record.h"

namespace corvan_tool {

// A shape describes the columns of a record with one letter each.
constexpr char kRowIdShape = 'r';  // an alias of the row id, which is NULL in the record
constexpr char kIntegerShape = 'i';
constexpr char kTextShape = 't';

struct KnownTable {
  std::string name;
  std::string sql;                   // empty for sqlite_sequence
  std::vector<std::string> columns;  // without the alias of the row id
  std::string shape;                 // of the records, including that alias
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

enum class Match {
  kLoose,  // values may have the wrong type, but an alias of the row id must be NULL
  kExact,
};

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

// Whether the values can be those of a record of this shape. Up to `added` more may follow: columns
// that were added to the table later.
bool has_shape(const std::vector<Value>& values, const std::string& shape, Match match,
               std::size_t added = 0);

// As has_shape(), for the part of a cell's record that is on its page.
bool starts_with_shape(std::string_view page, const Cell& cell, const std::string& shape,
                       Match match, std::size_t added);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_KNOWN_SCHEMA_H_
