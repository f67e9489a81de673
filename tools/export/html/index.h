// An export as pages to read.

#ifndef TOOLS_EXPORT_HTML_INDEX_H_
#define TOOLS_EXPORT_HTML_INDEX_H_

#include <string>

#include "tools/export/output.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// Makes index.html in `folder`, which lists the conversations, and their pages in pages/. A page
// stands for itself: it loads nothing and runs no script. Files are named by numbers alone. Throws
// ToolError when the store cannot be read or a page not be written.
void export_html(const ExportSource& source, const std::string& folder, ExportCounts& counts);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_INDEX_H_
