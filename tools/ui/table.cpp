#include "tools/ui/table.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr utf8proc_int32_t kEmojiPresentation = 0xFE0F;
constexpr int kGap = 2;

bool is_regional_indicator(utf8proc_int32_t c) {
  return c >= 0x1F1E6 && c <= 0x1F1FF;
}

std::string escaped(utf8proc_int32_t c) {
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == '\t') return "\\t";
  std::array<char, 16> text = {};
  std::snprintf(text.data(), text.size(), c < 0x100 ? "\\x%02x" : "\\u%04x",
                static_cast<unsigned>(c));
  return text.data();
}

std::string padding(int width) {
  return std::string().append(static_cast<std::size_t>(width), ' ');
}

}  // namespace

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

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view before = text;
    const utf8proc_int32_t c = take_code_point(text);
    const std::string_view bytes = before.substr(0, before.size() - text.size());
    if (c == kReplacement) {
      result += kReplacementText;
    } else if (drives_terminal(c)) {
      result += escaped(c);
    } else {
      result += bytes;
    }
  }
  return result;
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

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

void TextTable::add(const std::vector<std::string>& cells) {
  std::vector<std::string> row;
  row.reserve(cells.size());
  for (const std::string& cell : cells) row.push_back(printable(cell));
  rows_.push_back(std::move(row));
}

void TextTable::print(std::ostream& out, int line_width) const {
  std::vector<int> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    int width = display_width(columns_[i].heading);
    for (const auto& row : rows_) width = std::max(width, display_width(row[i]));
    widths.push_back(width);
  }

  const auto print_row = [&](const auto& cell_at) {
    std::string line;
    int used = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      std::string cell = cell_at(i);
      const bool last = i + 1 == columns_.size();
      if (last && line_width > 0) cell = clipped(cell, std::max(line_width - used, 1));
      const std::string pad = padding(std::max(widths[i] - display_width(cell), 0));
      const bool right = columns_[i].alignment == kRight;
      line += right ? pad + cell : cell + (last ? "" : pad);
      if (!last) line += padding(kGap);
      used += widths[i] + kGap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  };
  print_row([&](std::size_t i) { return columns_[i].heading; });
  for (const auto& row : rows_) {
    print_row([&](std::size_t i) { return row[i]; });
  }
}

int terminal_width() {
  winsize size = {};
  if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

}  // namespace corvan_tool
