#include "tools/ui/terminal_text.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>

#include "tools/platform/terminal.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr utf8proc_int32_t kEmojiPresentation = 0xFE0F;

bool is_regional_indicator(utf8proc_int32_t c) {
  return c >= 0x1F1E6 && c <= 0x1F1FF;
}

std::string escaped(utf8proc_int32_t c) {
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == '\t') return "\\t";
  return c < 0x100 ? fmt::format("\\x{:02x}", c) : fmt::format("\\u{:04x}", c);
}

}  // namespace

bool drives_terminal(int32_t c) {
  const bool is_control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
  const bool is_line_end = c == 0x2028 || c == 0x2029;
  const bool turns_direction = c == 0x061C || c == 0x200E || c == 0x200F ||
                               (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x206F);
  return is_control || is_line_end || turns_direction || c == 0xFEFF;
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view before = text;
    const utf8proc_int32_t c = take_code_point(text);
    if (c == kReplacement) {
      result += kReplacementText;
    } else if (drives_terminal(c)) {
      result += escaped(c);
    } else {
      result += before.substr(0, before.size() - text.size());
    }
  }
  return result;
}

Cluster take_cluster(std::string_view& text) {
  const std::string_view all = text;
  utf8proc_int32_t state = 0;
  utf8proc_int32_t previous = take_code_point(text);
  int width = utf8proc_charwidth(previous);
  int indicators = is_regional_indicator(previous) ? 1 : 0;
  while (!text.empty()) {
    std::string_view rest = text;
    const utf8proc_int32_t next = take_code_point(rest);
    if (utf8proc_grapheme_break_stateful(previous, next, &state)) break;
    width = std::max(width, next == kEmojiPresentation ? 2 : utf8proc_charwidth(next));
    indicators += is_regional_indicator(next) ? 1 : 0;
    previous = next;
    text = rest;
  }
  if (indicators == 2) width = 2;  // a flag
  return {all.substr(0, all.size() - text.size()), width};
}

int display_width(std::string_view text) {
  int width = 0;
  while (!text.empty()) width += take_cluster(text).width;
  return width;
}

std::string clipped(std::string_view text, int width) {
  if (display_width(text) <= width) return std::string(text);
  std::string result;
  int used = 1;  // the ellipsis
  while (!text.empty()) {
    const Cluster cluster = take_cluster(text);
    if (used + cluster.width > width) break;
    used += cluster.width;
    result += cluster.text;
  }
  return result + "…";
}

int terminal_width() {
  return columns_of_terminal();
}

}  // namespace corvan_tool
