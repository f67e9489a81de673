// Tables of text.

#ifndef TOOLS_UI_TABLE_H_
#define TOOLS_UI_TABLE_H_

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace corvan_tool {

// Rows below a line of headings, each column as wide as its widest cell. Cells are made printable.
class TextTable {
 public:
  enum Alignment { kLeft, kRight };
  struct Column {
    std::string heading;
    Alignment alignment = kLeft;
  };

  explicit TextTable(std::vector<Column> columns);

  // One cell per column.
  void add(const std::vector<std::string>& cells);

  // With a `line_width` above 0 the last column is clipped so that no line is longer.
  void print(std::ostream& out, int line_width) const;

 private:
  int width_of(std::size_t column) const;
  std::string line_of(const std::vector<std::string>& cells, const std::vector<int>& widths,
                      int line_width) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace corvan_tool

#endif  // TOOLS_UI_TABLE_H_
