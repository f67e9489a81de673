// How the rows of a store's tables and the entries of its indexes are recognised.

#ifndef TOOLS_SALVAGE_KNOWN_SCHEMA_H_
#define TOOLS_SALVAGE_KNOWN_SCHEMA_H_

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/page.h"

namespace corvan_tool {

// What is in the columns of a record, a letter each.
constexpr char kRowIdShape = 'r';  // stands in the key instead: NULL
constexpr char kIntegerShape = 'i';
constexpr char kTextShape = 't';

struct SalvageTable {
  std::string name;
  std::string sql;                   // the statement that makes it; empty for SQLite's own
  std::vector<std::string> columns;  // without the one that the key stands for
  std::string shape;                 // of its records, that one included
  std::vector<std::string> unique;   // the columns that no two rows have alike; may be empty
};

struct SalvageIndex {
  std::string name;
  std::string sql;                   // empty for one that is part of its table
  std::size_t table = 0;             // among the tables
  std::vector<std::string> columns;  // the last one is the row id, "rowid"
  std::string shape;
  bool has_all_rows = true;
  bool is_told_by_shape = true;  // no other index has the same
};

// The tables of a new store, and where they are in `tables`. sqlite_sequence is the last.
struct SalvageSchema {
  std::vector<SalvageTable> tables;
  std::vector<SalvageIndex> indexes;
  std::size_t messages = 0;
  std::size_t sessions = 0;
  std::size_t versions = 0;
  std::size_t sequences = 0;
};

// Throws ToolError when this SQLite cannot make a new store.
SalvageSchema salvage_schema();

// The columns that a file's own statement gives a table, or none when it is no such statement.
std::vector<std::string> columns_made_by(const std::string& sql);

constexpr std::size_t kAnyMore = std::numeric_limits<std::size_t>::max();

// Whether the values can be those of a record of this shape, with up to `more` behind them, of
// columns that were added later; a value that a column does not take is let pass unless `exactly`.
bool has_shape(const std::vector<Value>& values, const std::string& shape, bool exactly,
               std::size_t more = 0);

// What makes a row doubtful, by what weighs most.
enum class Doubt {
  kNone,
  kFree,       // it is on a page that the file lists as free: it was deleted
  kUnreached,  // nothing leads to its page, or no index names it, though both could be read
  kLog,        // it is only in the log beyond a damaged commit
  kVersions,   // there are different rows of its id or key
  kPlace,      // its id does not fit between its neighbours
  kText,       // a text is no UTF-8, or holds a zero byte
  kValue,      // a value is not of its column's type or codes
};
constexpr std::size_t kDoubts = 8;

// A word for JSON, and a sentence's end for people: "3 rows, "...
const char* doubt_word(Doubt doubt);
const char* doubt_text(Doubt doubt);

// kText, kValue or kNone. `values` are those of a record of the table's shape.
Doubt doubt_about(const SalvageTable& table, std::int64_t row_id, const std::vector<Value>& values);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_KNOWN_SCHEMA_H_
