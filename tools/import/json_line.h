// The errors in a line of JSON Lines, with the wording that 'corvan import' and 'corvan restore'
// share.

#ifndef TOOLS_IMPORT_JSON_LINE_H_
#define TOOLS_IMPORT_JSON_LINE_H_

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvan_tool {

// An error in a line. The text names neither the file nor the line number.
class LineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void fail_not_an_object();

// `byte` counts from 1.
[[noreturn]] void fail_not_json(std::size_t byte);
std::string not_json_text(std::size_t byte);

// `what` is wrong with the member of this name.
[[noreturn]] void fail_field(std::string_view name, std::string_view what);
[[noreturn]] void fail_given_twice(std::string_view name);
[[noreturn]] void fail_missing(std::string_view name);

// Fails if the line contains a zero byte: the JSON parser treats it as the end of the line.
void require_no_zero_byte(std::string_view line);

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_JSON_LINE_H_
