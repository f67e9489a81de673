// What --json writes.

#ifndef TOOLS_JSON_OUTPUT_H_
#define TOOLS_JSON_OUTPUT_H_

#include <iostream>
#include <nlohmann/json.hpp>

namespace corvan_tool {

using Json = nlohmann::ordered_json;

// Writes a value to standard output, a member a line. What is no UTF-8 becomes U+FFFD.
inline void print_json(const Json& value) {
  std::cout << value.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace corvan_tool

#endif  // TOOLS_JSON_OUTPUT_H_
