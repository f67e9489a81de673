// The JSON that the tool writes.

#ifndef TOOLS_UI_JSON_H_
#define TOOLS_UI_JSON_H_

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace corvan_tool {

using Json = nlohmann::ordered_json;

// `value` as JSON that is safe on a terminal: code points for which drives_terminal() returns
// true become escapes such as "\u009b", which JSON readers undo, and bytes that are not UTF-8
// become U+FFFD.
// With an `indent` of 0 or more there is one member per line.
std::string json_text(const Json& value, int indent = -1);

// How many bytes longer a UTF-8 text becomes in json_text(), without the quotes.
std::size_t json_growth(std::string_view text);

// Writes a value to standard output, one member per line.
void print_json(const Json& value);

}  // namespace corvan_tool

#endif  // TOOLS_UI_JSON_H_
