// What all pages of an export have in common.

#ifndef TOOLS_EXPORT_HTML_MARKUP_H_
#define TOOLS_EXPORT_HTML_MARKUP_H_

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace corvan_tool {

// The style sheet of all pages: style.css, without comments and layout. CMake makes its unit.
extern const char* const kPageStyle;

// A page up to the beginning of its body. `title` is plain text.
std::string page_begin(std::string_view title);

// The end of a page.
std::string page_end();

// The links to the page before and the page after in a row of pages; nothing when there is one page
// only. `file_of` gives the file of a page, counted from 1.
struct PageLabels {
  const char* name;    // of the row of links
  const char* before;  // of the link to the page before
  const char* after;
};
template <typename FileOf>
std::string page_links(std::size_t page, std::size_t pages, const PageLabels& labels,
                       const FileOf& file_of) {
  if (pages < 2) return "";
  std::string html = std::string(R"(<nav class="pager" aria-label=")") + labels.name + R"(">)";
  const auto link = [&](bool is_there, std::size_t to, const char* relation, const char* label) {
    html += is_there ? "<a rel=\"" + std::string(relation) + "\" href=\"" + file_of(to) + "\">" +
                           label + "</a>"
                     : std::string("<span></span>");
  };
  link(page > 1, page - 1, "prev", labels.before);
  html += "<span>Page " + std::to_string(page) + " of " + std::to_string(pages) + "</span>";
  link(page < pages, page + 1, "next", labels.after);
  return html + "</nav>\n";
}

// The class of one of a few colours, always the same one for a name.
std::string colour_class(std::string_view name);

// The date and time in UTC of milliseconds since the Unix epoch; nothing for 0 and for times before
// the year 1 and after 9999.
std::optional<std::tm> calendar(int64_t time);

// How times are written.
enum TimeForm {
  kInstant,  // 2026-05-04T03:02:01Z
  kDate,     // 2026-05-04
  kClock,    // 03:02
  kMonth,    // May 2026
  kDay,      // Monday, 4 May 2026
};
std::string formatted(const std::tm& time, TimeForm form);

// "1 message", "2 messages".
std::string counted(int64_t count, const std::string& what);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_MARKUP_H_
