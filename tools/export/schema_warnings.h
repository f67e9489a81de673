// Warns about a store whose schema differs from a new store's.

#ifndef TOOLS_EXPORT_SCHEMA_WARNINGS_H_
#define TOOLS_EXPORT_SCHEMA_WARNINGS_H_

#include "tools/export/selection.h"

namespace corvan_tool {

// Lists on standard error what an export in JSON Lines leaves out, and which columns and keys the
// tables lack compared with a restored store. Throws ToolError if the schema cannot be read.
void warn_about_schema(const ExportSource& source);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_SCHEMA_WARNINGS_H_
