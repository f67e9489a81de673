// Writes rows as records of JSON Lines; tools/store/export_format.h describes the format.

#ifndef TOOLS_EXPORT_RECORDS_H_
#define TOOLS_EXPORT_RECORDS_H_

#include <string>

#include "tools/store/connection.h"
#include "tools/store/export_format.h"

namespace corvan_tool {

// Replaces `line` by the record of a row, with its line end. The row must have the table's columns
// in their order.
void write_record(std::string& line, const Row& row, const ExportTable& table);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_RECORDS_H_
