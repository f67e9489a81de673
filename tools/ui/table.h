// Tables for a terminal.

#ifndef TOOLS_UI_TABLE_H_
#define TOOLS_UI_TABLE_H_

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace corvan_tool {

// `text` as it can be shown on one line: control characters, line ends and characters that turn the
// writing direction become escapes such as "\n", and what is not UTF-8 becomes U+FFFD. A message
// thus cannot drive the terminal.
std::string printable(std::string_view text);

// One character as a reader sees it, with all its code points.
struct Cluster {
  std::string_view text;
  int width = 0;  // in columns
};

// Takes the first character off `text`, which must not be empty.
Cluster take_cluster(std::string_view& text);

// The columns that printable UTF-8 text takes: East Asian wide characters and emoji take two,
// combining characters none.
int display_width(std::string_view text);

// `text` cut after as many whole characters as fit in `width` columns, with "…" in place of the
// rest.
std::string clipped(std::string_view text, int width);

// Rows under a line of headings, each column as wide as its widest cell. Cells are made printable.
class TextTable {
 public:
  enum Alignment { kLeft, kRight };
  struct Column {
    std::string heading;
    Alignment alignment = kLeft;
  };

  explicit TextTable(std::vector<Column> columns);

  // One cell a column.
  void add(const std::vector<std::string>& cells);

  // Writes the table; with a `line_width` above 0 the last column is clipped so that no line is
  // longer.
  void print(std::ostream& out, int line_width) const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

// The columns of the terminal that standard output goes to; 0 when it is none.
int terminal_width();

}  // namespace corvan_tool

#endif  // TOOLS_UI_TABLE_H_
