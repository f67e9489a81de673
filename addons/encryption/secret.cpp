#include "addons/encryption/secret.h"

#include <cstring>

#include "addons/encryption/secret_pages.h"

namespace Corvan::encryption {

namespace {

// Whole pages, with room for the zero byte at the end.
std::size_t whole_pages(std::size_t size) {
  const std::size_t page = page_size();
  return (size / page + 1) * page;
}

}  // namespace

Secret::Secret(std::size_t capacity)
    : text_(map_pages(whole_pages(capacity))), allocated_(whole_pages(capacity)) {}

Secret::~Secret() {
  wipe(text_, allocated_);
  unmap_pages(text_, allocated_);
}

void Secret::append(std::string_view text) {
  if (text.size() >= allocated_ - size_) return;
  std::memcpy(text_ + size_, text.data(), text.size());
  size_ += text.size();
}

void Secret::append_hex(const unsigned char* bytes, std::size_t count) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  for (std::size_t i = 0; i < count; ++i) {
    append(kDigits.substr(bytes[i] >> 4U, 1));
    append(kDigits.substr(bytes[i] & 15U, 1));
  }
}

}  // namespace Corvan::encryption
