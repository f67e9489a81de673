// Texts of a store on HTML pages. Whatever they hold, they are shown as text.

#ifndef TOOLS_EXPORT_HTML_TEXT_H_
#define TOOLS_EXPORT_HTML_TEXT_H_

#include <string>
#include <string_view>

namespace corvan_tool {

// printable(), but the marks of a writing direction stay: they have no effect on what stands
// around.
std::string one_line(std::string_view text);

// A text on one line, for an element or an attribute in quotes: one_line(), escaped.
std::string html_line(std::string_view text);

// A text with its line ends, for an element that keeps white space. Control characters, and those
// that open or close a writing direction, become visible marks that do nothing; what is no UTF-8
// becomes U+FFFD.
std::string html_body(std::string_view text);

// The first character as the sign of a person or a conversation; "#" when it cannot be shown.
std::string html_initial(std::string_view text);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_TEXT_H_
