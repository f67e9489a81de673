#include "bench/peers/io_counts.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <stdexcept>

namespace corvan_bench {

namespace {

thread_local IoCounts* current = &thread_counts();

void count_sync() {
  current->syncs.fetch_add(1, std::memory_order_relaxed);
}

ssize_t count_write(int file, ssize_t written) {
  if (written > 0) current->bytes.fetch_add(written, std::memory_order_relaxed);
  if ((fcntl(file, F_GETFL) & O_DSYNC) != 0) count_sync();
  return written;
}

// The C library's function with this name.
template <typename Function>
Function* next(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) throw std::runtime_error(name);
  return reinterpret_cast<Function*>(found);
}

}  // namespace

CountInto::CountInto(IoCounts& counts) : before_(current) {
  current = &counts;
}
CountInto::~CountInto() {
  current = before_;
}

IoCounts& thread_counts() {
  static IoCounts threads;
  return threads;
}

void count_commit() {
  current->commits.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace corvan_bench

// Functions that replace those of the C library. They have the library's names only for the linker,
// because its headers rename some functions when file offsets have 64 bits.

using corvan_bench::count_sync;
using corvan_bench::count_write;
using corvan_bench::next;

extern "C" {

int counted_fsync(int file) __asm__("fsync");
int counted_fdatasync(int file) __asm__("fdatasync");
int counted_msync(void* start, size_t size, int flags) __asm__("msync");
ssize_t counted_write(int file, const void* data, size_t size) __asm__("write");
ssize_t counted_writev(int file, const iovec* parts, int count) __asm__("writev");
ssize_t counted_pwrite(int file, const void* data, size_t size, off_t at) __asm__("pwrite");
ssize_t counted_pwrite64(int file, const void* data, size_t size, off_t at) __asm__("pwrite64");
ssize_t counted_pwritev(int file, const iovec* parts, int count, off_t at) __asm__("pwritev");
ssize_t counted_pwritev64(int file, const iovec* parts, int count, off_t at) __asm__("pwritev64");

int counted_fsync(int file) {
  static auto* const real = next<int(int)>("fsync");
  count_sync();
  return real(file);
}

int counted_fdatasync(int file) {
  static auto* const real = next<int(int)>("fdatasync");
  count_sync();
  return real(file);
}

int counted_msync(void* start, size_t size, int flags) {
  static auto* const real = next<int(void*, size_t, int)>("msync");
  count_sync();
  return real(start, size, flags);
}

ssize_t counted_write(int file, const void* data, size_t size) {
  static auto* const real = next<ssize_t(int, const void*, size_t)>("write");
  return count_write(file, real(file, data, size));
}

ssize_t counted_writev(int file, const iovec* parts, int count) {
  static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
  return count_write(file, real(file, parts, count));
}

ssize_t counted_pwrite(int file, const void* data, size_t size, off_t at) {
  static auto* const real = next<ssize_t(int, const void*, size_t, off_t)>("pwrite");
  return count_write(file, real(file, data, size, at));
}

ssize_t counted_pwrite64(int file, const void* data, size_t size, off_t at) {
  static auto* const real = next<ssize_t(int, const void*, size_t, off_t)>("pwrite64");
  return count_write(file, real(file, data, size, at));
}

ssize_t counted_pwritev(int file, const iovec* parts, int count, off_t at) {
  static auto* const real = next<ssize_t(int, const iovec*, int, off_t)>("pwritev");
  return count_write(file, real(file, parts, count, at));
}

ssize_t counted_pwritev64(int file, const iovec* parts, int count, off_t at) {
  static auto* const real = next<ssize_t(int, const iovec*, int, off_t)>("pwritev64");
  return count_write(file, real(file, parts, count, at));
}

}  // extern "C"
