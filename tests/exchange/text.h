// Values as text on one line.

#ifndef TESTS_EXCHANGE_TEXT_H_
#define TESTS_EXCHANGE_TEXT_H_

#include <cstdint>
#include <string>

namespace exchange {

// In quotes; backslashes and control characters are escaped. Texts over 200 bytes are shown as size
// and checksum.
std::string shown(const std::string& text);

inline std::string shown(int64_t number) {
  return std::to_string(number);
}

// The values with a bar between them.
template <typename First, typename... Rest>
std::string line_of(const First& first, const Rest&... rest) {
  std::string line = shown(first);
  ((line += "|" + shown(rest)), ...);
  return line;
}

}  // namespace exchange

#endif  // TESTS_EXCHANGE_TEXT_H_
