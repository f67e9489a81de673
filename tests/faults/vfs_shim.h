// A file system for SQLite that passes every call on to the real one. Suites derive from it to make
// calls fail or to record them. If SQLite was built with a cipher, the object is below the cipher:
// it gets the bytes that are on the disk.

#ifndef TESTS_FAULTS_VFS_SHIM_H_
#define TESTS_FAULTS_VFS_SHIM_H_

#include <sqlite3.h>

#include <cstdint>

namespace corvan_test {

class VfsShim;

// An open file. SQLite allocates it, with room for the real file after it.
struct ShimFile {
  sqlite3_file base;
  VfsShim* shim;
  const char* path;  // SQLite's, valid while the file is open; null for a temporary file
  int flags;         // those it was opened with

  sqlite3_file* real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

// SQLite's default file system while the object exists. Only one may exist at a time. Close every
// connection that was opened meanwhile before it is destroyed.
//
// Each virtual function is one method of sqlite3_vfs or sqlite3_io_methods (version 2) and returns
// an SQLite result code; as defined here it calls the real file system's.
class VfsShim {
 public:
  VfsShim();
  VfsShim(const VfsShim&) = delete;
  VfsShim& operator=(const VfsShim&) = delete;
  virtual ~VfsShim();

  virtual int open(const char* path, ShimFile& file, int flags, int* out_flags);
  virtual int remove(const char* path, int sync_folder);
  virtual int access(const char* path, int flags, int* result);
  virtual int sleep(int microseconds);

  virtual int close(ShimFile& file);
  virtual int read(ShimFile& file, void* data, int size, int64_t offset);
  virtual int write(ShimFile& file, const void* data, int size, int64_t offset);
  virtual int truncate(ShimFile& file, int64_t size);
  virtual int sync(ShimFile& file, int flags);
  virtual int file_size(ShimFile& file, int64_t* size);
  virtual int lock(ShimFile& file, int level);
  virtual int unlock(ShimFile& file, int level);
  virtual int check_reserved_lock(ShimFile& file, int* result);
  virtual int file_control(ShimFile& file, int op, void* argument);
  virtual int shm_map(ShimFile& file, int page, int size, int extend, void volatile** memory);
  virtual int shm_lock(ShimFile& file, int offset, int count, int flags);
  virtual int shm_unmap(ShimFile& file, int remove_it);

  sqlite3_vfs* real() const { return real_; }

 private:
  sqlite3_vfs* default_;  // SQLite's default before and after this one
  sqlite3_vfs* real_;
  sqlite3_vfs vfs_;
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_VFS_SHIM_H_
