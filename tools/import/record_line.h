// One line of an export in JSON Lines.

#ifndef TOOLS_IMPORT_RECORD_LINE_H_
#define TOOLS_IMPORT_RECORD_LINE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ui/json.h"

namespace corvan_tool {

// The JSON object in a line. Members that no record can have are dropped.
struct Record {
  Json json = Json::object();
  bool has_unknown = false;
  std::string unknown;  // the key of the first dropped member
};

// The functions below throw LineError.

// Parses a line. Memory stays proportional to the size of the line, however deeply it is nested.
Record parse_record(const std::string& line);

// A member, which must be there.
const Json& member(const Record& record, const char* name);

// The member "type".
std::string record_type(const Record& record);

// Numbers of records, in the order of export_tables().
using RowCounts = std::vector<int64_t>;

struct ExportHeader {
  bool is_partial = false;
  int64_t user_version = 0;
  RowCounts counts;
};
ExportHeader read_header(const Record& record);

// The counts in the last record of an export.
RowCounts read_end(const Record& record);

// The position in export_tables() of the table whose records are of this type.
std::size_t table_of(const std::string& type);

// Fails if the record has a member that is not a column of the table. Does not check that all
// columns are there.
void require_columns(const Record& record, std::size_t table);

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_RECORD_LINE_H_
