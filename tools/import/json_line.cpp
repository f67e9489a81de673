#include "tools/import/json_line.h"

#include <fmt/format.h>

namespace corvan_tool {

void fail_not_an_object() {
  throw LineError("not a JSON object");
}

std::string not_json_text(std::size_t byte) {
  return fmt::format("not valid JSON at byte {}", byte);
}

void fail_not_json(std::size_t byte) {
  throw LineError(not_json_text(byte));
}

void fail_field(std::string_view name, std::string_view what) {
  throw LineError(fmt::format("field \"{}\": {}", name, what));
}

void fail_given_twice(std::string_view name) {
  fail_field(name, "given twice");
}

void fail_missing(std::string_view name) {
  fail_field(name, "missing");
}

void require_no_zero_byte(std::string_view line) {
  const std::size_t zero = line.find('\0');
  if (zero != std::string_view::npos) fail_not_json(zero + 1);
}

}  // namespace corvan_tool
