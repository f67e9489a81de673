// Makes calls of the file system fail for the files of the index, or for the store's.

#ifndef TESTS_ADDONS_SEARCH_INDEX_FAULTS_H_
#define TESTS_ADDONS_SEARCH_INDEX_FAULTS_H_

#include <cstdint>

#include "tests/faults/vfs_shim.h"

namespace corvan_test {

class IndexFaults : public VfsShim {
 public:
  enum class Files { kIndex, kStore };
  enum class Kind { kOnce, kFromThenOn };

  // From now on, makes the nth call for these files fail. If `nth` is 0, none fails.
  void arm(Files files, uint64_t nth, Kind kind);
  void disarm() { armed_ = false; }
  // While this is set, the index's files cannot grow: the disk is full.
  void fill_disk(bool full) { full_ = full; }

  // Since arm(): the calls, and those that failed.
  uint64_t calls() const { return calls_; }
  uint64_t failed() const { return failed_; }

  int open(const char* path, ShimFile& file, int flags, int* out_flags) override;
  int remove(const char* path, int sync_folder) override;
  int access(const char* path, int flags, int* result) override;
  int read(ShimFile& file, void* data, int size, int64_t offset) override;
  int write(ShimFile& file, const void* data, int size, int64_t offset) override;
  int truncate(ShimFile& file, int64_t size) override;
  int sync(ShimFile& file, int flags) override;
  int file_size(ShimFile& file, int64_t* size) override;
  int lock(ShimFile& file, int level) override;
  int shm_map(ShimFile& file, int page, int size, int extend, void volatile** memory) override;
  int shm_lock(ShimFile& file, int offset, int count, int flags) override;
  int sleep(int microseconds) override;

 private:
  bool fails(const char* path);

  bool armed_ = false;
  bool full_ = false;
  Files files_ = Files::kIndex;
  Kind kind_ = Kind::kOnce;
  uint64_t nth_ = 0;
  uint64_t calls_ = 0;
  uint64_t failed_ = 0;
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_INDEX_FAULTS_H_
