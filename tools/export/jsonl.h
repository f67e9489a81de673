// Writes an export as JSON Lines; tools/store/export_format.h describes the format.

#ifndef TOOLS_EXPORT_JSONL_H_
#define TOOLS_EXPORT_JSONL_H_

#include "tools/export/output.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// Writes all columns of all selected rows, from which 'corvan restore' makes the same store.
// Warns on standard error about anything that is not part of a message store and is left out.
// Memory does not grow with the store. Throws ToolError if the store cannot be read or the output
// cannot be written.
void export_jsonl(const ExportSource& source, ExportOutput& output, ExportCounts& counts);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_JSONL_H_
