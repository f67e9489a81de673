#include "tools/export/html/text.h"

#include <algorithm>
#include <cstddef>

#include "tools/ui/terminal_text.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

// The characters of most texts. At most they are escaped for HTML.
constexpr const char* kPlain =
    "\t\n !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
    "abcdefghijklmnopqrstuvwxyz{|}~";

void append_escaped(std::string& html, std::string_view text) {
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
}

// Right-to-left texts need these marks. They do not affect the text around them.
bool is_direction_mark(int32_t c) {
  return c == 0x200E || c == 0x200F || c == 0x061C;
}

// Removes the first code point from the text and returns its bytes.
std::string_view take_bytes(std::string_view& text, int32_t& code_point) {
  const std::string_view before = text;
  code_point = take_code_point(text);
  return before.substr(0, before.size() - text.size());
}

}  // namespace

std::string one_line(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    int32_t c = 0;
    const std::string_view bytes = take_bytes(text, c);
    result += is_direction_mark(c) ? std::string(bytes) : printable(bytes);
  }
  return result;
}

std::string html_line(std::string_view text) {
  std::string html;
  append_escaped(html, one_line(text));
  return html;
}

std::string html_body(std::string_view text) {
  std::string html;
  html.reserve(text.size());
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_not_of(kPlain), text.size());
    append_escaped(html, text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;

    int32_t c = 0;
    const std::string_view bytes = take_bytes(text, c);
    if (c == '\r' && !text.empty() && text[0] == '\n') continue;
    const std::string shown = printable(bytes);
    if (is_direction_mark(c)) {
      html += bytes;
    } else if (shown == bytes || c == kReplacement) {
      append_escaped(html, shown);
    } else {
      html += "<span class=\"mark\">" + shown + "</span>";
    }
  }
  return html;
}

std::string html_initial(std::string_view text) {
  if (text.empty()) return "#";
  int32_t c = 0;
  const std::string_view bytes = take_bytes(text, c);
  if (printable(bytes) != bytes || bytes == " " || display_width(bytes) < 1) return "#";
  return html_line(bytes);
}

}  // namespace corvan_tool
