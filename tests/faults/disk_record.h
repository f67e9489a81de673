// Records, in order, everything that SQLite does to the files of one folder. From the record,
// disk_images.h builds what a loss of power at any moment would have left.

#ifndef TESTS_FAULTS_DISK_RECORD_H_
#define TESTS_FAULTS_DISK_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/vfs_shim.h"

namespace corvan_test {

// The files of a folder by name.
using DiskImage = std::map<std::string, std::string>;

// Shared-memory files are left out: they do not outlive a loss of power.
DiskImage read_folder(const std::string& folder);
void write_folder(const std::string& folder, const DiskImage& image);

struct DiskEvent {
  enum Kind { kCreate, kWrite, kTruncate, kSync, kDelete };
  Kind kind;
  std::string file;            // the name in its folder
  int64_t offset = 0;          // of a write; for a truncation, the new size
  std::string bytes;           // of a write
  bool folder_synced = false;  // of a sync or a deletion: whether the folder was synced after it
};
std::string kind_and_file(const DiskEvent& event);  // such as "sync corvan-wal"
std::ostream& operator<<(std::ostream& out, const DiskEvent& event);

struct DiskRecord {
  DiskImage start;  // the folder before the first event, all of it durable
  std::vector<DiskEvent> events;
};

// SQLite's default file system while it exists. All files that are opened meanwhile must be in one
// folder.
class DiskRecorder : public VfsShim {
 public:
  enum class Syncs { kCounted, kIgnored };  // ignored: carried out but not recorded

  explicit DiskRecorder(DiskImage start, Syncs syncs = Syncs::kCounted);

  const DiskRecord& record() const { return record_; }

  // Stops recording.
  void end() { ended_ = true; }

  int open(const char* path, ShimFile& file, int flags, int* out_flags) override;
  int remove(const char* path, int sync_folder) override;
  int close(ShimFile& file) override;
  int write(ShimFile& file, const void* data, int size, int64_t offset) override;
  int truncate(ShimFile& file, int64_t size) override;
  int sync(ShimFile& file, int flags) override;

 private:
  void add(DiskEvent event);

  Syncs syncs_;
  DiskRecord record_;
  // SQLite's file system for Unix syncs the folder with the first sync of each journal or
  // write-ahead log that it opened to create: these have not been synced yet.
  std::set<const ShimFile*> folder_unsynced_;
  bool ended_ = false;
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_DISK_RECORD_H_
