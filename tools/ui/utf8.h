// Reads UTF-8 that need not be well formed.

#ifndef TOOLS_UI_UTF8_H_
#define TOOLS_UI_UTF8_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace corvan_tool {

// U+FFFD, which replaces bytes that are not UTF-8, and its UTF-8 form.
constexpr int32_t kReplacement = 0xFFFD;
constexpr const char* kReplacementText = "\xEF\xBF\xBD";

// Removes the first code point from `text`, which must not be empty, and returns it. If `text` does
// not begin with a code point, removes one byte and returns kReplacement.
int32_t take_code_point(std::string_view& text);

bool is_utf8(std::string_view text);

// `text` with each byte that belongs to no code point replaced by kReplacementText.
std::string valid_utf8(std::string_view text);

// `text`, truncated at a character boundary to at most `most` bytes and an ellipsis. For names in
// errors and reports, which may have any length.
std::string shortened(const std::string& text, std::size_t most = 100);

}  // namespace corvan_tool

#endif  // TOOLS_UI_UTF8_H_
