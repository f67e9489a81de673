#include "tools/ui/utf8.h"

#include <utf8proc.h>

#include <cstddef>

namespace corvan_tool {

namespace {

// Takes the first code point off: its bytes, or nothing where none starts.
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

bool drives_terminal(int32_t c) {
  const bool is_control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
  const bool is_line_end = c == 0x2028 || c == 0x2029;
  const bool turns_direction = c == 0x061C || c == 0x200E || c == 0x200F ||
                               (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x206F);
  return is_control || is_line_end || turns_direction || c == 0xFEFF;
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
