// Replaces the global operator new. The array and nothrow forms call it.

#include "bench/floor/allocations.h"

#include <cstdlib>
#include <new>

namespace {

corvan_bench::Allocations counted;

}  // namespace

namespace corvan_bench {

Allocations allocations() {
  return counted;
}

}  // namespace corvan_bench

void* operator new(std::size_t size) {
  ++counted.count;
  counted.bytes += static_cast<int64_t>(size);
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
