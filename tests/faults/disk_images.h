// What a disk may contain after a power loss.
//
// Synced changes are durable: the changes of a file's content before the last sync of the file, and
// the created and deleted entries before the last sync of the folder. The rest is pending. Each
// pending write or truncation reaches the disk or not, independently of the others. Any of a
// write's sectors may reach the disk. The pending changes of one entry reach the disk in order;
// entries are independent of each other.

#ifndef TESTS_FAULTS_DISK_IMAGES_H_
#define TESTS_FAULTS_DISK_IMAGES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/faults/disk_record.h"

namespace corvan_test {

// The part of one pending write that reached the disk: its bytes from `begin` to before `end`. A
// truncation counts as kept if the part is not empty.
struct KeptPart {
  std::size_t begin;
  std::size_t end;
};

// Which pending changes reached the disk.
struct Fate {
  std::string name;
  std::vector<KeptPart> changes;               // one for each of Disk::changes(), in their order
  std::map<std::string, std::size_t> entries;  // how many of an entry's changes were kept
};

// How many fates are tried at one crash point.
struct FateBounds {
  uint64_t subsets;  // random subsets
  uint64_t tears;    // places at which the last pending write is torn
};

// The disk after the first events of a record.
class Disk {
 public:
  explicit Disk(const DiskRecord& record);

  // Takes the next event.
  void advance();
  std::size_t events() const { return event_; }
  bool at_end() const { return event_ == record_->events.size(); }

  bool anything_pending() const;
  // The pending writes and truncations, oldest first.
  const std::vector<const DiskEvent*>& changes() const { return changes_; }

  // The fates to try: all changes dropped, all kept, all but the first, all but the last, the last
  // one torn, content without entries, entries without content, and random subsets.
  std::vector<Fate> fates(const FateBounds& bounds, std::mt19937_64& random) const;

  Fate all_kept() const { return fate("all pending kept", true, true); }

  DiskImage image(const Fate& fate) const;

 private:
  using File = std::size_t;  // an index into contents_
  struct Entry {
    std::optional<File> durable;               // the file of this name on the disk
    std::vector<std::optional<File>> pending;  // the file of this name after each pending change
  };

  std::optional<File>& live(const std::string& name);
  void sync_content(File file);
  void sync_folder();
  Fate fate(const char* name, bool keep_changes, bool keep_entries) const;
  Fate random_fate(std::mt19937_64& random) const;

  const DiskRecord* record_;
  std::size_t event_ = 0;
  std::vector<std::string> contents_;  // the durable ones
  std::map<std::string, Entry> entries_;
  std::vector<const DiskEvent*> changes_;
  std::vector<File> changed_;  // the file of each change
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_DISK_IMAGES_H_
