// UTF-8, which need not be well-formed.

#ifndef TOOLS_UI_UTF8_H_
#define TOOLS_UI_UTF8_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace corvan_tool {

// What stands for bytes that are no UTF-8: U+FFFD, and the same in UTF-8.
constexpr int32_t kReplacement = 0xFFFD;
constexpr const char* kReplacementText = "\xEF\xBF\xBD";

// Takes the first code point off `text`, which must not be empty; kReplacement and one byte where
// none starts.
int32_t take_code_point(std::string_view& text);

// Whether showing the code point could move the cursor, change colours, turn the writing direction
// or hide: control characters, line and paragraph separators, bidirectional controls, U+FEFF.
bool drives_terminal(int32_t code_point);

bool is_utf8(std::string_view text);

// `text` with kReplacementText for each byte that belongs to no code point.
std::string valid_utf8(std::string_view text);

// At most `most` bytes of a text, in whole characters, with an ellipsis where some are left out:
// for names in errors and reports, which may be of any length.
std::string shortened(const std::string& text, std::size_t most = 100);

}  // namespace corvan_tool

#endif  // TOOLS_UI_UTF8_H_
