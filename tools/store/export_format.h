// The format of the JSON Lines that 'corvan export' writes and 'corvan restore' reads.
//
// The first line is the header and the last line is the end. Between them, each row of a store is
// one record, in the order of export_tables(). If a column has the type that its values normally
// have, the value is a JSON string or number. SQL NULL is null. Any other value is an object with
// one member:
//   {"text": "..."}         text in a numeric column
//   {"text_hex": "..."}     text as hexadecimal digits: it is not UTF-8, contains zero bytes, or is
//                           longer as a JSON string
//   {"blob_hex": "..."}     a blob as hexadecimal digits
//   {"integer": 1}          a whole number in a text column
//   {"real": "..."}         a floating-point number, as real_text() writes it

#ifndef TOOLS_STORE_EXPORT_FORMAT_H_
#define TOOLS_STORE_EXPORT_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvan_tool {

// Increase it when an older restore would misread a new file.
constexpr int64_t kExportFormat = 1;

constexpr const char* kHeaderType = "corvan-export";
constexpr const char* kEndType = "end";

struct ExportColumn {
  const char* name;
  bool is_text;  // otherwise a whole number
  // Whether this is the row id itself rather than a column that holds it.
  bool is_row_id() const { return std::string_view(name) == "rowid"; }
};

struct ExportTable {
  const char* type;                   // "type" of its records
  const char* count;                  // the key of their number, in the header and at the end
  const char* name;                   // in SQL
  bool is_by_session;                 // each row belongs to a conversation
  std::vector<ExportColumn> columns;  // the row id first, under its name in SQL
};

// Positions in export_tables().
enum : std::size_t { kVersions, kSyncs, kSessions, kMessages, kSequences };

// The tables in the order of the file. sqlite_sequence, where SQLite keeps the largest ids, is
// last, because inserting messages changes it.
const std::vector<ExportTable>& export_tables();

// The names of a table's columns for an SQL statement, separated by commas. `row_id` replaces
// "rowid": a table can have another column of that name.
std::string column_list(const ExportTable& table, const std::string& row_id = "rowid");

// A floating-point number with enough digits to read the same number back.
std::string real_text(double value);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_EXPORT_FORMAT_H_
