// Writes an export as CSV, for spreadsheets.

#ifndef TOOLS_EXPORT_CSV_H_
#define TOOLS_EXPORT_CSV_H_

#include "tools/export/output.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// Who reads the output.
enum class CsvReader { kProgram, kTerminal };

// Writes a line of headings and one record per message. For a terminal, texts are printable().
// Memory does not grow with the store. Throws ToolError if the store cannot be read or the output
// cannot be written.
void export_csv(const ExportSource& source, ExportOutput& output, CsvReader reader,
                ExportCounts& counts);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_CSV_H_
