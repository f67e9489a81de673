#include "tools/export/html/markup.h"

#include <fmt/format.h>

namespace corvan_tool {

namespace {

// A link to a page, or an empty element in its place if the page does not exist.
std::string page_link(bool exists, const char* relation, const std::string& file,
                      const char* label) {
  if (!exists) return "<span></span>";
  return fmt::format(R"(<a rel="{}" href="{}">{}</a>)", relation, file, label);
}

}  // namespace

std::string page_begin(std::string_view title) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
         html_line(title) + "</title>\n<style>\n" + kPageStyle + "</style>\n</head>\n<body>\n";
}

std::string page_end() {
  return "<footer><p>Exported by corvan " CORVAN_VERSION
         ". Times are in UTC.</p></footer>\n</body>\n</html>\n";
}

std::string page_links(std::size_t page, std::size_t pages, const PageLabels& labels,
                       const std::function<std::string(std::size_t page)>& file_of) {
  if (pages < 2) return "";
  return fmt::format(
      "<nav class=\"pager\" aria-label=\"{}\">{}<span>Page {} of {}</span>{}</nav>\n", labels.name,
      page_link(page > 1, "prev", file_of(page - 1), labels.previous), page, pages,
      page_link(page < pages, "next", file_of(page + 1), labels.next));
}

std::string colour_class(std::string_view name) {
  constexpr std::uint32_t kColours = 8;
  std::uint32_t hash = 2166136261U;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return fmt::format("c{}", (hash >> 8) % kColours);
}

}  // namespace corvan_tool
