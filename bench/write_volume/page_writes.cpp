#include "bench/write_volume/page_writes.h"

namespace corvan_bench {

namespace {

// The format of SQLite's write-ahead log.
constexpr int64_t kLogHeader = 32;
constexpr int64_t kFrameHeader = 24;
constexpr int64_t kFrame = kFrameHeader + CountingFileSystem::kPageSize;

int64_t big_endian(const unsigned char* bytes) {
  return (int64_t{bytes[0]} << 24) | (int64_t{bytes[1]} << 16) | (int64_t{bytes[2]} << 8) |
         int64_t{bytes[3]};
}

}  // namespace

int CountingFileSystem::write(corvan_test::ShimFile& file, const void* data, int size,
                              int64_t offset) {
  bytes_ += size;
  if ((file.flags & SQLITE_OPEN_WAL) != 0) {
    count_log_write(data, size, offset);
  } else if ((file.flags & SQLITE_OPEN_MAIN_DB) != 0) {
    ++pages_[offset / kPageSize + 1].checkpointed;
  }
  return VfsShim::write(file, data, size, offset);
}

// A page that a transaction writes for the second time replaces the first one in its frame, without
// a new header.
void CountingFileSystem::count_log_write(const void* data, int size, int64_t offset) {
  if (offset < kLogHeader) return;
  const int64_t frame = (offset - kLogHeader) / kFrame;
  if (size == kFrameHeader) frames_[frame] = big_endian(static_cast<const unsigned char*>(data));
  if (size == kPageSize) ++in_transaction_[frames_.at(frame)];
}

void CountingFileSystem::clear() {
  pages_.clear();
  in_transaction_.clear();
  bytes_ = 0;
}

void CountingFileSystem::end_transaction() {
  for (const auto& [page, writes] : in_transaction_) {
    ++pages_[page].transactions;
    pages_[page].logged += writes;
  }
  in_transaction_.clear();
}

}  // namespace corvan_bench
