// The records of the JSON Lines that 'corvan export' writes and 'corvan restore' reads.
//
// The first line is the header, the last one the end; between them stands one record a row, in the
// order of export_tables(). A value is the JSON text or number that the column is for, null for SQL
// NULL, or, for everything else that a row can hold, an object with one member:
//   {"text": "..."}         text in a column of numbers
//   {"text_hex": "..."}     text that is not UTF-8, holds zero bytes, or is longer in JSON than in
//                           hexadecimal digits, which these are
//   {"blob_hex": "..."}     a blob
//   {"integer": 1}          a whole number in a column of text
//   {"real": "..."}         a floating-point number, in as many digits as it takes

#ifndef TOOLS_STORE_EXPORT_FORMAT_H_
#define TOOLS_STORE_EXPORT_FORMAT_H_

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ui/json.h"

namespace corvan_tool {

// Raised whenever an older restore would misread a file.
constexpr int64_t kExportFormat = 1;

constexpr const char* kHeaderType = "corvan-export";
constexpr const char* kEndType = "end";

struct ExportColumn {
  const char* name;
  bool is_text;  // otherwise a whole number
  // Whether it is the row id itself rather than a column that has it.
  bool is_row_id() const { return std::string_view(name) == "rowid"; }
};

struct ExportTable {
  const char* type;                   // of its records
  const char* count;                  // the key of their number, in the header and at the end
  const char* name;                   // in SQL
  bool is_by_session;                 // its rows belong to a conversation
  std::vector<ExportColumn> columns;  // the row id first, by the name that SQL has for it
};

// Places of tables.
enum : std::size_t { kVersions, kSyncs, kSessions, kMessages, kSequences };

// The tables in the order of the file. SQLite's own table of the ids given comes last: writing
// messages changes it.
const std::vector<ExportTable>& export_tables();

// The names of a table's columns as SQL takes them, with `row_id` for the row id: a column of a
// file may have that name.
std::string column_list(const ExportTable& table, const std::string& row_id = "rowid");

// Appends a value of a row as JSON.
void append_value(std::string& line, sqlite3_stmt* row, int place, const ExportColumn& column);

// Binds a value, which must be there until the statement has run. Otherwise says what is wrong with
// it; nothing is bound then. `needs_check` is set for values that SQLite could turn into others
// when it stores them.
std::string bind_value(sqlite3_stmt* stmt, int place, const Json& value, const ExportColumn& column,
                       bool& needs_check);

// Whether a JSON number is a whole one of 64 bits with a sign.
bool is_whole(const Json& value);

// The storage class of a value, in SQLite's words.
const char* class_of(const Json& value, const ExportColumn& column);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_EXPORT_FORMAT_H_
