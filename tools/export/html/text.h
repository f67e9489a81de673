// Escapes a store's texts for HTML pages, so that nothing in them acts as markup.

#ifndef TOOLS_EXPORT_HTML_TEXT_H_
#define TOOLS_EXPORT_HTML_TEXT_H_

#include <string>
#include <string_view>

namespace corvan_tool {

// As printable(), but keeps direction marks such as U+200E, which do not affect the text around
// them.
std::string one_line(std::string_view text);

// A text on one line, escaped for an element or a quoted attribute.
std::string html_line(std::string_view text);

// A text with its line ends, for an element that preserves white space. Control characters and
// bidirectional controls become visible escapes; bytes that are not UTF-8 become U+FFFD.
std::string html_body(std::string_view text);

// The first character, as a sign for a conversation; "#" if it cannot be shown.
std::string html_initial(std::string_view text);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_TEXT_H_
