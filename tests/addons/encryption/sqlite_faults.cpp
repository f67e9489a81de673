#include "tests/addons/encryption/sqlite_faults.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>

#include "addons/encryption/store_keys.h"

namespace corvan_test {

namespace {

// Counts down to the call that fails.
class Countdown {
 public:
  void start(int number, bool all_later) {
    all_later_ = all_later;
    failed_ = false;
    left_ = number;
  }
  void stop() { left_ = 0; }
  bool failed() const { return failed_; }
  bool fails() {
    if (left_ <= 0) return false;
    if (left_ > 1) {
      --left_;
      return false;
    }
    failed_ = true;
    if (!all_later_) left_ = 0;
    return true;
  }

 private:
  std::atomic<int> left_{0};
  std::atomic<bool> failed_{false};
  bool all_later_ = false;
};

Countdown allocations;
Countdown reads;
sqlite3_mem_methods real_memory;

void restart_sqlite(int option, const sqlite3_mem_methods* memory) {
  if (sqlite3_shutdown() != SQLITE_OK || sqlite3_config(option, memory) != SQLITE_OK ||
      sqlite3_initialize() != SQLITE_OK) {
    throw std::runtime_error("SQLite cannot be restarted");
  }
}

void* allocate(int size) {
  return allocations.fails() ? nullptr : real_memory.xMalloc(size);
}
void* reallocate(void* memory, int size) {
  return allocations.fails() ? nullptr : real_memory.xRealloc(memory, size);
}

struct Plan {
  int number;
  bool all_later;
};
Plan planned;

int begin_to_fail(sqlite3* /*db*/, char** /*message*/, const void* /*routines*/) {
  allocations.start(planned.number, planned.all_later);
  return SQLITE_OK;
}
int end_to_fail(sqlite3* /*db*/, char** /*message*/, const void* /*routines*/) {
  allocations.stop();
  return SQLITE_OK;
}

using ReadAt = ssize_t (*)(int, void*, size_t, off_t);
using ReadAt64 = ssize_t (*)(int, void*, size_t, sqlite3_int64);
using Stat = int (*)(int, struct stat*);
sqlite3_syscall_ptr real_pread;
sqlite3_syscall_ptr real_pread64;
sqlite3_syscall_ptr real_fstat;

ssize_t failing_pread(int file, void* buffer, size_t size, off_t place) {
  if (!reads.fails()) return reinterpret_cast<ReadAt>(real_pread)(file, buffer, size, place);
  errno = EIO;
  return -1;
}
ssize_t failing_pread64(int file, void* buffer, size_t size, sqlite3_int64 place) {
  if (!reads.fails()) return reinterpret_cast<ReadAt64>(real_pread64)(file, buffer, size, place);
  errno = EIO;
  return -1;
}
int failing_fstat(int file, struct stat* result) {
  if (!reads.fails()) return reinterpret_cast<Stat>(real_fstat)(file, result);
  errno = EIO;
  return -1;
}

template <typename Function>
void replace(const char* name, sqlite3_syscall_ptr& real, Function function) {
  sqlite3_vfs* const vfs = sqlite3_vfs_find("unix");
  real = vfs->xGetSystemCall(vfs, name);
  if (real != nullptr) {
    vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(function));
  }
}
void restore(const char* name) {
  sqlite3_vfs* const vfs = sqlite3_vfs_find("unix");
  vfs->xSetSystemCall(vfs, name, nullptr);
}

}  // namespace

FailingMemory::FailingMemory() {
  sqlite3_initialize();  // only then are SQLite's own functions known
  sqlite3_shutdown();
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &real_memory);
  sqlite3_mem_methods memory = real_memory;
  memory.xMalloc = allocate;
  memory.xRealloc = reallocate;
  restart_sqlite(SQLITE_CONFIG_MALLOC, &memory);
}

FailingMemory::~FailingMemory() {
  stop();
  restart_sqlite(SQLITE_CONFIG_MALLOC, &real_memory);
}

void FailingMemory::fail(int number, bool all_later) {
  planned = {number, all_later};
  sqlite3_reset_auto_extension();
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(begin_to_fail));
  Corvan::StoreKeys::install();
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(end_to_fail));
  allocations.start(0, false);
}

bool FailingMemory::stop() {
  planned = {0, false};
  allocations.stop();
  return allocations.failed();
}

FailingReads::FailingReads(int number, bool all_later) {
  sqlite3_initialize();
  replace("pread", real_pread, failing_pread);
  replace("pread64", real_pread64, failing_pread64);
  replace("fstat", real_fstat, failing_fstat);
  reads.start(number, all_later);
}

FailingReads::~FailingReads() {
  reads.stop();
  for (const char* const name : {"pread", "pread64", "fstat"}) restore(name);
}

bool FailingReads::has_failed() {
  return reads.failed();
}

SqliteLog::SqliteLog() {
  const auto note = [](void* self, int /*code*/, const char* line) {
    static_cast<SqliteLog*>(self)->lines_.emplace_back(line);
  };
  using Log = void (*)(void*, int, const char*);
  sqlite3_shutdown();
  sqlite3_config(SQLITE_CONFIG_LOG, static_cast<Log>(note), static_cast<void*>(this));
  sqlite3_initialize();
}

SqliteLog::~SqliteLog() {
  sqlite3_shutdown();
  sqlite3_config(SQLITE_CONFIG_LOG, static_cast<void*>(nullptr), static_cast<void*>(nullptr));
  sqlite3_initialize();
}

}  // namespace corvan_test
