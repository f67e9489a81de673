// Makes text safe for a terminal, and fits it to the width.

#ifndef TOOLS_UI_TERMINAL_TEXT_H_
#define TOOLS_UI_TERMINAL_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace corvan_tool {

// Whether showing the code point could move the cursor, change colours, change the writing
// direction or hide text: control characters, line and paragraph separators, bidirectional
// controls, U+FEFF.
bool drives_terminal(int32_t code_point);

// `text` for one line of a terminal: characters for which drives_terminal() returns true become
// escapes such as "\n", and bytes that are not UTF-8 become U+FFFD.
std::string printable(std::string_view text);

// One character as a reader sees it, with all its code points.
struct Cluster {
  std::string_view text;
  int width = 0;  // in columns
};

// Removes the first character from `text`, which must not be empty, and returns it.
Cluster take_cluster(std::string_view& text);

// The columns that printable UTF-8 text takes: wide East Asian characters and emoji take two,
// combining characters none.
int display_width(std::string_view text);

// `text`, cut to as many whole characters as fit into `width` columns together with a final "…".
std::string clipped(std::string_view text, int width);

// The width of the terminal that standard output goes to; 0 if it does not go to one.
int terminal_width();

}  // namespace corvan_tool

#endif  // TOOLS_UI_TERMINAL_TEXT_H_
