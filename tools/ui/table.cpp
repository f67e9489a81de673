#include "tools/ui/table.h"

#include <algorithm>
#include <utility>

#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

constexpr int kGap = 2;

std::string padding(int width) {
  return std::string().append(static_cast<std::size_t>(std::max(width, 0)), ' ');
}

}  // namespace

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

void TextTable::add(const std::vector<std::string>& cells) {
  std::vector<std::string> row;
  row.reserve(cells.size());
  for (const std::string& cell : cells) row.push_back(printable(cell));
  rows_.push_back(std::move(row));
}

int TextTable::width_of(std::size_t column) const {
  int width = display_width(columns_[column].heading);
  for (const auto& row : rows_) width = std::max(width, display_width(row[column]));
  return width;
}

std::string TextTable::line_of(const std::vector<std::string>& cells,
                               const std::vector<int>& widths, int line_width) const {
  std::string line;
  int used = 0;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const bool is_last = i + 1 == cells.size();
    const bool is_clipped = is_last && line_width > 0;
    const std::string cell =
        is_clipped ? clipped(cells[i], std::max(line_width - used, 1)) : cells[i];
    const std::string pad = padding(widths[i] - display_width(cell));
    line += columns_[i].alignment == kRight ? pad + cell : cell + pad;
    line += padding(kGap);
    used += widths[i] + kGap;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

void TextTable::print(std::ostream& out, int line_width) const {
  std::vector<std::string> headings;
  std::vector<int> widths;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    headings.push_back(columns_[i].heading);
    widths.push_back(width_of(i));
  }
  out << line_of(headings, widths, line_width) << '\n';
  for (const auto& row : rows_) out << line_of(row, widths, line_width) << '\n';
}

}  // namespace corvan_tool
