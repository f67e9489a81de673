#include "tools/ui/utf8.h"

#include <utf8proc.h>

#include <cstddef>

namespace corvan_tool {

namespace {

// Removes the first code point and returns its bytes; nothing if the text does not begin with one.
std::string_view take_bytes(std::string_view& text) {
  const std::string_view before = text;
  const bool is_none = take_code_point(text) == kReplacement && before.size() - text.size() == 1;
  return is_none ? std::string_view() : before.substr(0, before.size() - text.size());
}

}  // namespace

int32_t take_code_point(std::string_view& text) {
  utf8proc_int32_t code_point = kReplacement;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  const utf8proc_ssize_t size =
      utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &code_point);
  text.remove_prefix(size > 0 ? static_cast<std::size_t>(size) : 1);
  return size > 0 ? code_point : kReplacement;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    if (take_bytes(text).empty()) return false;
  }
  return true;
}

std::string valid_utf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::string_view bytes = take_bytes(text);
    result += bytes.empty() ? std::string_view(kReplacementText) : bytes;
  }
  return result;
}

std::string shortened(const std::string& text, std::size_t most) {
  if (text.size() <= most) return text;
  std::size_t size = most;
  while (size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80) --size;
  return text.substr(0, size) + "\u2026";
}

}  // namespace corvan_tool
