// The formats of an export that are one file: JSON Lines and CSV.

#ifndef TOOLS_EXPORT_LINES_H_
#define TOOLS_EXPORT_LINES_H_

#include "tools/export/output.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// Both write row by row, whatever the store's size, and throw ToolError when the store cannot be
// read or the output not be written.

// All columns of all rows, such that 'corvan restore' makes the same store of them. What is no part
// of a message store is named on standard error and left out.
void export_jsonl(const ExportSource& source, ExportOutput& output, ExportCounts& counts);

// The messages, one a record, under a line of headings. For a terminal the texts are printable().
enum class CsvReader { kProgram, kTerminal };
void export_csv(const ExportSource& source, ExportOutput& output, CsvReader reader,
                ExportCounts& counts);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_LINES_H_
