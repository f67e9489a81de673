#include "tests/faults/vfs_shim.h"

#include <stdexcept>
#include <string>
#include <string_view>

// Only SQLite3 Multiple Ciphers defines these two. It encrypts in a file system of its own, which
// it puts over another one.
extern "C" {
int sqlite3mc_vfs_create(const char* below, int make_default) __attribute__((weak));
void sqlite3mc_vfs_destroy(const char* name) __attribute__((weak));
}

namespace corvan_test {
namespace {

constexpr const char* kName = "corvan-test";

// ---- With a cipher ------------------------------------------------------------------------------

// The name of the cipher's file system is this and the name of the file system below.
constexpr std::string_view kCipherOver = "multipleciphers-";

bool is_cipher(const sqlite3_vfs& vfs) {
  return std::string_view(vfs.zName).substr(0, kCipherOver.size()) == kCipherOver;
}

sqlite3_vfs* below_cipher(sqlite3_vfs* vfs) {
  if (vfs == nullptr) throw std::runtime_error("SQLite has no file system");
  if (!is_cipher(*vfs)) return vfs;
  sqlite3_vfs* below = sqlite3_vfs_find(vfs->zName + kCipherOver.size());
  if (below == nullptr) throw std::runtime_error("SQLite has no file system below the cipher");
  return below;
}

// ---- From SQLite's structures to the object -----------------------------------------------------

VfsShim& shim_of(sqlite3_vfs* vfs) {
  return *static_cast<VfsShim*>(vfs->pAppData);
}

ShimFile& file_of(sqlite3_file* file) {
  return *reinterpret_cast<ShimFile*>(file);
}

int close(sqlite3_file* f) {
  return file_of(f).shim->close(file_of(f));
}
int read(sqlite3_file* f, void* data, int size, sqlite3_int64 offset) {
  return file_of(f).shim->read(file_of(f), data, size, offset);
}
int write(sqlite3_file* f, const void* data, int size, sqlite3_int64 offset) {
  return file_of(f).shim->write(file_of(f), data, size, offset);
}
int truncate(sqlite3_file* f, sqlite3_int64 size) {
  return file_of(f).shim->truncate(file_of(f), size);
}
int sync(sqlite3_file* f, int flags) {
  return file_of(f).shim->sync(file_of(f), flags);
}
int file_size(sqlite3_file* f, sqlite3_int64* size) {
  int64_t wide = 0;
  const int rc = file_of(f).shim->file_size(file_of(f), &wide);
  *size = wide;
  return rc;
}
int lock(sqlite3_file* f, int level) {
  return file_of(f).shim->lock(file_of(f), level);
}
int unlock(sqlite3_file* f, int level) {
  return file_of(f).shim->unlock(file_of(f), level);
}
int check_reserved_lock(sqlite3_file* f, int* result) {
  return file_of(f).shim->check_reserved_lock(file_of(f), result);
}
int file_control(sqlite3_file* f, int op, void* argument) {
  return file_of(f).shim->file_control(file_of(f), op, argument);
}
int sector_size(sqlite3_file* f) {
  sqlite3_file* real = file_of(f).real();
  return real->pMethods->xSectorSize(real);
}
int device_characteristics(sqlite3_file* f) {
  sqlite3_file* real = file_of(f).real();
  return real->pMethods->xDeviceCharacteristics(real);
}
int shm_map(sqlite3_file* f, int page, int size, int extend, void volatile** memory) {
  return file_of(f).shim->shm_map(file_of(f), page, size, extend, memory);
}
int shm_lock(sqlite3_file* f, int offset, int count, int flags) {
  return file_of(f).shim->shm_lock(file_of(f), offset, count, flags);
}
void shm_barrier(sqlite3_file* f) {
  sqlite3_file* real = file_of(f).real();
  real->pMethods->xShmBarrier(real);
}
int shm_unmap(sqlite3_file* f, int remove_it) {
  return file_of(f).shim->shm_unmap(file_of(f), remove_it);
}

// Version 2: without xFetch, SQLite maps no pages into memory, so every access to one is a call.
const sqlite3_io_methods methods = {
    2,
    close,
    read,
    write,
    truncate,
    sync,
    file_size,
    lock,
    unlock,
    check_reserved_lock,
    file_control,
    sector_size,
    device_characteristics,
    shm_map,
    shm_lock,
    shm_barrier,
    shm_unmap,
    nullptr,
    nullptr,
};

int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* f, int flags, int* out_flags) {
  ShimFile& file = file_of(f);
  file.base.pMethods = nullptr;  // SQLite closes a file after a failure only when this is set
  file.shim = &shim_of(vfs);
  file.path = path;
  file.flags = flags;
  const int rc = file.shim->open(path, file, flags, out_flags);
  if (rc == SQLITE_OK) file.base.pMethods = &methods;
  return rc;
}
int remove(sqlite3_vfs* vfs, const char* path, int sync_folder) {
  return shim_of(vfs).remove(path, sync_folder);
}
int access(sqlite3_vfs* vfs, const char* path, int flags, int* result) {
  return shim_of(vfs).access(path, flags, result);
}
int full_pathname(sqlite3_vfs* vfs, const char* path, int size, char* out) {
  sqlite3_vfs* real = shim_of(vfs).real();
  return real->xFullPathname(real, path, size, out);
}
int randomness(sqlite3_vfs* vfs, int size, char* out) {
  sqlite3_vfs* real = shim_of(vfs).real();
  return real->xRandomness(real, size, out);
}
int sleep(sqlite3_vfs* vfs, int microseconds) {
  return shim_of(vfs).sleep(microseconds);
}
int current_time(sqlite3_vfs* vfs, double* now) {
  sqlite3_vfs* real = shim_of(vfs).real();
  return real->xCurrentTime(real, now);
}
int last_error(sqlite3_vfs* vfs, int size, char* out) {
  sqlite3_vfs* real = shim_of(vfs).real();
  return real->xGetLastError(real, size, out);
}
int current_time_64(sqlite3_vfs* vfs, sqlite3_int64* now) {
  sqlite3_vfs* real = shim_of(vfs).real();
  return real->xCurrentTimeInt64(real, now);
}

}  // namespace

VfsShim::VfsShim() : default_(sqlite3_vfs_find(nullptr)), real_(below_cipher(default_)), vfs_() {
  vfs_.iVersion = 2;
  vfs_.szOsFile = static_cast<int>(sizeof(ShimFile)) + real_->szOsFile;
  vfs_.mxPathname = real_->mxPathname;
  vfs_.zName = kName;
  vfs_.pAppData = this;
  vfs_.xOpen = corvan_test::open;
  vfs_.xDelete = corvan_test::remove;
  vfs_.xAccess = corvan_test::access;
  vfs_.xFullPathname = full_pathname;
  vfs_.xRandomness = randomness;
  vfs_.xSleep = corvan_test::sleep;
  vfs_.xCurrentTime = current_time;
  vfs_.xGetLastError = last_error;
  vfs_.xCurrentTimeInt64 = current_time_64;
  sqlite3_vfs_register(&vfs_, 1);
  if (is_cipher(*default_) && sqlite3mc_vfs_create(kName, 1) != SQLITE_OK) {
    throw std::runtime_error("The cipher cannot use the file system of the tests");
  }
}

VfsShim::~VfsShim() {
  if (is_cipher(*default_)) sqlite3mc_vfs_destroy((std::string(kCipherOver) + kName).c_str());
  sqlite3_vfs_unregister(&vfs_);
  sqlite3_vfs_register(default_, 1);
}

// ---- Calls of the real file system --------------------------------------------------------------

int VfsShim::open(const char* path, ShimFile& file, int flags, int* out_flags) {
  return real_->xOpen(real_, path, file.real(), flags, out_flags);
}
int VfsShim::remove(const char* path, int sync_folder) {
  return real_->xDelete(real_, path, sync_folder);
}
int VfsShim::access(const char* path, int flags, int* result) {
  return real_->xAccess(real_, path, flags, result);
}
int VfsShim::sleep(int microseconds) {
  return real_->xSleep(real_, microseconds);
}
int VfsShim::close(ShimFile& file) {
  return file.real()->pMethods->xClose(file.real());
}
int VfsShim::read(ShimFile& file, void* data, int size, int64_t offset) {
  return file.real()->pMethods->xRead(file.real(), data, size, offset);
}
int VfsShim::write(ShimFile& file, const void* data, int size, int64_t offset) {
  return file.real()->pMethods->xWrite(file.real(), data, size, offset);
}
int VfsShim::truncate(ShimFile& file, int64_t size) {
  return file.real()->pMethods->xTruncate(file.real(), size);
}
int VfsShim::sync(ShimFile& file, int flags) {
  return file.real()->pMethods->xSync(file.real(), flags);
}
int VfsShim::file_size(ShimFile& file, int64_t* size) {
  sqlite3_int64 wide = 0;
  const int rc = file.real()->pMethods->xFileSize(file.real(), &wide);
  *size = wide;
  return rc;
}
int VfsShim::lock(ShimFile& file, int level) {
  return file.real()->pMethods->xLock(file.real(), level);
}
int VfsShim::unlock(ShimFile& file, int level) {
  return file.real()->pMethods->xUnlock(file.real(), level);
}
int VfsShim::check_reserved_lock(ShimFile& file, int* result) {
  return file.real()->pMethods->xCheckReservedLock(file.real(), result);
}
int VfsShim::file_control(ShimFile& file, int op, void* argument) {
  return file.real()->pMethods->xFileControl(file.real(), op, argument);
}
int VfsShim::shm_map(ShimFile& file, int page, int size, int extend, void volatile** memory) {
  return file.real()->pMethods->xShmMap(file.real(), page, size, extend, memory);
}
int VfsShim::shm_lock(ShimFile& file, int offset, int count, int flags) {
  return file.real()->pMethods->xShmLock(file.real(), offset, count, flags);
}
int VfsShim::shm_unmap(ShimFile& file, int remove_it) {
  return file.real()->pMethods->xShmUnmap(file.real(), remove_it);
}

}  // namespace corvan_test
