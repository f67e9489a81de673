// Counts the writes of a database by page, as SQLite passes them to the file system.

#ifndef BENCH_WRITE_VOLUME_PAGE_WRITES_H_
#define BENCH_WRITE_VOLUME_PAGE_WRITES_H_

#include <cstdint>
#include <map>
#include <vector>

#include "tests/faults/vfs_shim.h"

namespace corvan_bench {

// The writes of one page. A transaction that changes more pages than the page cache holds writes
// some of them to the log early, and again if it changes them afterwards.
struct PageWrites {
  int64_t transactions = 0;  // that changed the page
  int64_t logged = 0;        // writes to the write-ahead log
  int64_t checkpointed = 0;  // writes to the database file
};

// SQLite's default file system while the object exists. Its files are never synced: syncs do not
// change what is written. Only one database may be open.
class CountingFileSystem final : public corvan_test::VfsShim {
 public:
  static constexpr int64_t kPageSize = 4096;

  int write(corvan_test::ShimFile& file, const void* data, int size, int64_t offset) override;
  int sync(corvan_test::ShimFile& /*file*/, int /*flags*/) override { return SQLITE_OK; }

  // Forgets what was counted.
  void clear();
  // Call this after each commit.
  void end_transaction();

  const std::map<int64_t, PageWrites>& pages() const { return pages_; }
  // All bytes, including the headers of the log and of its frames.
  int64_t bytes() const { return bytes_; }

 private:
  void count_log_write(const void* data, int size, int64_t offset);

  std::map<int64_t, int64_t> frames_;  // the page that each frame of the log holds
  std::map<int64_t, PageWrites> pages_;
  std::map<int64_t, int64_t> in_transaction_;  // writes to the log by page
  int64_t bytes_ = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_WRITE_VOLUME_PAGE_WRITES_H_
