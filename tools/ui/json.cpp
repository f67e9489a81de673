#include "tools/ui/json.h"

#include <fmt/format.h>

#include <cstdint>
#include <iostream>

#include "tools/ui/terminal_text.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kEscapeSize = 6;

// Whether a code point that drives a terminal can begin with this byte. The JSON library
// escapes those below U+0020 itself.
bool may_begin_driver(char c) {
  return c == '\x7F' || c == '\xC2' || c == '\xD8' || c == '\xE2' || c == '\xEF';
}

// The first code point from `from` on that drives a terminal. `size`, in bytes, is 0 if there is
// none.
struct Driver {
  std::size_t place = std::string_view::npos;
  std::size_t size = 0;
  int32_t code_point = 0;
};
Driver find_driver(std::string_view text, std::size_t from) {
  for (std::size_t i = from; i < text.size(); ++i) {
    if (!may_begin_driver(text[i])) continue;
    std::string_view rest = text.substr(i);
    const std::size_t size = rest.size();
    const int32_t code_point = take_code_point(rest);
    if (drives_terminal(code_point)) return {i, size - rest.size(), code_point};
  }
  return {};
}

}  // namespace

std::string json_text(const Json& value, int indent) {
  std::string json = value.dump(indent, ' ', false, Json::error_handler_t::replace);
  Driver driver = find_driver(json, 0);
  if (driver.size == 0) return json;
  std::string result;
  std::size_t from = 0;
  for (; driver.size > 0; driver = find_driver(json, from)) {
    result.append(json, from, driver.place - from);
    result += fmt::format("\\u{:04x}", driver.code_point);
    from = driver.place + driver.size;
  }
  return result.append(json, from);
}

std::size_t json_growth(std::string_view text) {
  constexpr std::string_view kTwoCharacters = "\"\\\b\f\n\r\t";
  std::size_t more = 0;
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\') continue;
    more += kTwoCharacters.find(c) == std::string_view::npos ? kEscapeSize - 1 : 1;
  }
  for (Driver driver = find_driver(text, 0); driver.size > 0;
       driver = find_driver(text, driver.place + driver.size)) {
    more += kEscapeSize - driver.size;
  }
  return more;
}

void print_json(const Json& value) {
  std::cout << json_text(value, 2) << '\n';
}

}  // namespace corvan_tool
