#include "tests/faults/memory_faults.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "tests/support/uncounted.h"

namespace {

using corvan_test::Memory;

bool armed = false;
Memory armed_memory = Memory::kOwn;
uint64_t left = 0;  // up to the one that fails
bool only_once = true;
uint64_t counted = 0;
uint64_t failed = 0;
std::atomic<int64_t> blocks{0};

bool fails(Memory memory) {
  if (!armed || corvan_test::Uncounted::now()) return false;
  if (armed_memory != memory && armed_memory != Memory::kBoth) return false;
  ++counted;
  if (left == 0 || counted < left || (only_once && failed > 0)) return false;
  ++failed;
  return true;
}

// ---- SQLite's allocator -------------------------------------------------------------------------

sqlite3_mem_methods library_methods;

void* sqlite_malloc(int size) {
  return fails(Memory::kSqlite) ? nullptr : library_methods.xMalloc(size);
}

void* sqlite_realloc(void* block, int size) {
  return fails(Memory::kSqlite) ? nullptr : library_methods.xRealloc(block, size);
}

// Before main(), because SQLite's allocator cannot be replaced once SQLite is in use.
[[maybe_unused]] const bool installed = [] {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &library_methods);
  sqlite3_mem_methods methods = library_methods;
  methods.xMalloc = sqlite_malloc;
  methods.xRealloc = sqlite_realloc;
  if (sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) != SQLITE_OK) std::abort();
  // Fails harmlessly if SQLite was built without lookaside memory.
  sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
  return true;
}();

// ---- operator new -------------------------------------------------------------------------------

void* allocate(std::size_t size) noexcept {
  if (fails(Memory::kOwn)) return nullptr;
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block != nullptr) ++blocks;
  return block;
}

// Stores the address for free() before the block: not every system has aligned_alloc().
void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
  if (fails(Memory::kOwn)) return nullptr;
  const auto bytes = std::max(static_cast<std::size_t>(alignment), alignof(void*));
  std::size_t space = size + bytes;
  void* const all = std::malloc(space + sizeof(void*));
  if (all == nullptr) return nullptr;
  void* block = static_cast<void**>(all) + 1;
  std::align(bytes, size, block, space);
  *(static_cast<void**>(block) - 1) = all;
  ++blocks;
  return block;
}

void* checked(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void release(void* block) noexcept {
  if (block == nullptr) return;
  --blocks;
  std::free(block);
}

void release_aligned(void* block) noexcept {
  if (block != nullptr) release(*(static_cast<void**>(block) - 1));
}

}  // namespace

void* operator new(std::size_t size) {
  return checked(allocate(size));
}
void* operator new[](std::size_t size) {
  return checked(allocate(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return checked(allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return checked(allocate(size, alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, alignment);
}

void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
  release_aligned(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
  release_aligned(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
  release_aligned(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
  release_aligned(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  release(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  release_aligned(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
  release_aligned(block);
}

namespace corvan_test {

void arm_memory(Memory memory, uint64_t nth, bool once) {
  armed_memory = memory;
  left = nth;
  only_once = once;
  counted = 0;
  failed = 0;
  armed = true;
}

void disarm_memory() {
  armed = false;
}

uint64_t allocations() {
  return counted;
}

uint64_t failed_allocations() {
  return failed;
}

int64_t own_blocks() {
  return blocks;
}

}  // namespace corvan_test
