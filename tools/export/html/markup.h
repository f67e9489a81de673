// The markup that all pages of an export have in common.

#ifndef TOOLS_EXPORT_HTML_MARKUP_H_
#define TOOLS_EXPORT_HTML_MARKUP_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/export/html/text.h"
#include "tools/export/selection.h"

namespace corvan_tool {

// The style sheet of all pages: style.css without comments and layout. CMake generates its
// definition.
extern const char* const kPageStyle;

// The beginning of a page, up to the tag <body>. `title` is plain text.
std::string page_begin(std::string_view title);

// The end of a page.
std::string page_end();

// Links to the previous and the next page of a sequence; empty if there is only one page. Pages
// count from 1.
struct PageLabels {
  const char* name;      // of the links as a whole, for screen readers
  const char* previous;  // of the link to the previous page
  const char* next;      // of the link to the next page
};
std::string page_links(std::size_t page, std::size_t pages, const PageLabels& labels,
                       const std::function<std::string(std::size_t page)>& file_of);

// The class for the colour of a name. A name always has the same colour.
std::string colour_class(std::string_view name);

// The name of a code. A value that is not a code is shown as it is.
template <typename NameOf>
std::string html_code(const Code& code, const NameOf& name_of) {
  if (code.number) return name_of(*code.number);
  return "<bdi>" + (code.text.empty() ? "none" : html_line(code.text)) + "</bdi>";
}

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_MARKUP_H_
