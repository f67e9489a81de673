#include "tests/addons/search/index_faults.h"

#include <filesystem>

namespace corvan_test {

namespace {

bool is_index(const char* path) {
  return std::filesystem::u8path(path).filename().u8string().rfind("corvan-search", 0) == 0;
}

}  // namespace

void IndexFaults::arm(Files files, uint64_t nth, Kind kind) {
  files_ = files;
  kind_ = kind;
  nth_ = nth;
  calls_ = 0;
  failed_ = 0;
  armed_ = true;
}

bool IndexFaults::fails(const char* path) {
  if (!armed_ || path == nullptr || is_index(path) != (files_ == Files::kIndex)) return false;
  ++calls_;
  if (nth_ == 0 || calls_ < nth_ || (kind_ == Kind::kOnce && failed_ > 0)) return false;
  ++failed_;
  return true;
}

int IndexFaults::open(const char* path, ShimFile& file, int flags, int* out_flags) {
  return fails(path) ? SQLITE_CANTOPEN : VfsShim::open(path, file, flags, out_flags);
}

int IndexFaults::remove(const char* path, int sync_folder) {
  return fails(path) ? SQLITE_IOERR_DELETE : VfsShim::remove(path, sync_folder);
}

int IndexFaults::access(const char* path, int flags, int* result) {
  return fails(path) ? SQLITE_IOERR_ACCESS : VfsShim::access(path, flags, result);
}

int IndexFaults::read(ShimFile& file, void* data, int size, int64_t offset) {
  return fails(file.path) ? SQLITE_IOERR_READ : VfsShim::read(file, data, size, offset);
}

int IndexFaults::write(ShimFile& file, const void* data, int size, int64_t offset) {
  int64_t present = 0;
  if (full_ && file.path != nullptr && is_index(file.path)) {
    VfsShim::file_size(file, &present);
    if (offset + size > present) return SQLITE_FULL;
  }
  return fails(file.path) ? SQLITE_IOERR_WRITE : VfsShim::write(file, data, size, offset);
}

int IndexFaults::truncate(ShimFile& file, int64_t size) {
  return fails(file.path) ? SQLITE_IOERR_TRUNCATE : VfsShim::truncate(file, size);
}

int IndexFaults::sync(ShimFile& file, int flags) {
  return fails(file.path) ? SQLITE_IOERR_FSYNC : VfsShim::sync(file, flags);
}

int IndexFaults::file_size(ShimFile& file, int64_t* size) {
  return fails(file.path) ? SQLITE_IOERR_FSTAT : VfsShim::file_size(file, size);
}

int IndexFaults::lock(ShimFile& file, int level) {
  return fails(file.path) ? SQLITE_IOERR_LOCK : VfsShim::lock(file, level);
}

int IndexFaults::shm_map(ShimFile& file, int page, int size, int extend, void volatile** memory) {
  if (fails(file.path)) return SQLITE_IOERR_SHMMAP;
  return VfsShim::shm_map(file, page, size, extend, memory);
}

// Releasing a lock does not fail: SQLite ignores the result.
int IndexFaults::shm_lock(ShimFile& file, int offset, int count, int flags) {
  const bool locks = (flags & SQLITE_SHM_LOCK) != 0;
  return locks && fails(file.path) ? SQLITE_IOERR_SHMLOCK
                                   : VfsShim::shm_lock(file, offset, count, flags);
}

// Without the wait: nobody else has the files open.
int IndexFaults::sleep(int microseconds) {
  return microseconds;
}

}  // namespace corvan_test
