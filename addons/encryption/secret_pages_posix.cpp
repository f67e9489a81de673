#include "addons/encryption/secret_pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>

#include "addons/encryption/secret.h"

namespace Corvan::encryption {

std::size_t page_size() {
  return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
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

void unmap_pages(char* pages, std::size_t size) {
  munmap(pages, size);
}

void wipe(void* bytes, std::size_t size) {
#if defined(__GLIBC__)
  explicit_bzero(bytes, size);
#else
  volatile auto* byte = static_cast<volatile unsigned char*>(bytes);
  while (size-- > 0) *byte++ = 0;
#endif
}

}  // namespace Corvan::encryption
