#include <windows.h>

#include <new>

#include "addons/encryption/secret.h"
#include "addons/encryption/secret_pages.h"

namespace Corvan::encryption {

std::size_t page_size() {
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  return system.dwPageSize;
}

char* map_pages(std::size_t size) {
  void* const pages = VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (pages == nullptr) throw std::bad_alloc();
  // Windows allows it for a few pages only. Beyond them, a secret is as safe as other memory.
  static_cast<void>(VirtualLock(pages, size));
  return static_cast<char*>(pages);
}

void unmap_pages(char* pages, std::size_t /*size*/) {
  VirtualFree(pages, 0, MEM_RELEASE);
}

void wipe(void* bytes, std::size_t size) {
  SecureZeroMemory(bytes, size);
}

}  // namespace Corvan::encryption
