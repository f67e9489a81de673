// The JSON that the tool writes.

#ifndef TOOLS_UI_JSON_H_
#define TOOLS_UI_JSON_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace corvan_tool {

using Json = nlohmann::ordered_json;

// A value as JSON that can be shown on a terminal: whatever drives_terminal() is an escape such as
// "\u009b", which a reader turns back. What is no UTF-8 becomes U+FFFD. With an `indent` of 0 or
// more, a member a line.
std::string json_text(const Json& value, int indent = -1);

// By how many bytes a text in UTF-8 is longer in json_text(), apart from the quotes.
std::size_t json_growth(std::string_view text);

// Writes a value to standard output, a member a line.
void print_json(const Json& value);

}  // namespace corvan_tool

#endif  // TOOLS_UI_JSON_H_
