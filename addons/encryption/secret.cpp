#include "addons/encryption/secret.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>

namespace Corvan::encryption {

namespace {

// Whole pages, with room for the zero byte at the end.
std::size_t whole_pages(std::size_t size) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return (size / page + 1) * page;
}

char* map_pages(std::size_t size) {
  void* const pages =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  // Both may be forbidden to the process. The secret is then as safe as the rest of its memory.
  static_cast<void>(mlock(pages, size));
#if defined(MADV_DONTDUMP)
  static_cast<void>(madvise(pages, size, MADV_DONTDUMP));
#endif
  return static_cast<char*>(pages);
}

}  // namespace

void wipe(void* bytes, std::size_t size) {
#if defined(__GLIBC__)
  explicit_bzero(bytes, size);
#else
  volatile auto* byte = static_cast<volatile unsigned char*>(bytes);
  while (size-- > 0) *byte++ = 0;
#endif
}

Secret::Secret(std::size_t capacity)
    : text_(map_pages(whole_pages(capacity))), allocated_(whole_pages(capacity)) {}

Secret::~Secret() {
  wipe(text_, allocated_);
  munmap(text_, allocated_);
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
