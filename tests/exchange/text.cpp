#include "tests/exchange/text.h"

#include <cstddef>

namespace exchange {

namespace {

constexpr std::size_t kLongText = 200;

// FNV-1a.
uint64_t checksum(const std::string& text) {
  uint64_t sum = 0xcbf29ce484222325U;
  for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return sum;
}

std::string escaped(char c) {
  const auto byte = static_cast<unsigned char>(c);
  if (c == '\\') return "\\\\";
  return byte < 0x20 ? "\\" + std::to_string(byte) + ";" : std::string(1, c);
}

}  // namespace

std::string shown(const std::string& text) {
  if (text.size() > kLongText) {
    return std::to_string(text.size()) + " bytes with the checksum " +
           std::to_string(checksum(text));
  }
  std::string result = "\"";
  for (const char c : text) result += escaped(c);
  return result + "\"";
}

}  // namespace exchange
