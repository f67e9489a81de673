// Writes an export as HTML pages, and the index of conversations.

#ifndef TOOLS_EXPORT_HTML_INDEX_H_
#define TOOLS_EXPORT_HTML_INDEX_H_

#include <string>

#include "tools/export/output.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// Makes index.html in `folder`, which lists the conversations, and their pages in pages/. A page
// loads nothing and runs no script. The names of files contain only numbers, no texts of the store.
// Throws ToolError if the store cannot be read or a page cannot be written.
void export_html(const ExportSource& source, const std::string& folder, ExportCounts& counts);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_INDEX_H_
