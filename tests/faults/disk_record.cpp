#include "tests/faults/disk_record.h"

#include <array>
#include <filesystem>
#include <ostream>
#include <utility>

#include "tests/support/temporary_folder.h"

#ifndef SQLITE_OPEN_SUPER_JOURNAL  // its name since SQLite 3.33
#define SQLITE_OPEN_SUPER_JOURNAL SQLITE_OPEN_MASTER_JOURNAL
#endif

namespace corvan_test {
namespace {

constexpr int kJournals = SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL;

bool is_shared_memory(const std::string& name) {
  constexpr std::size_t kSuffix = 4;
  return name.size() >= kSuffix && name.compare(name.size() - kSuffix, kSuffix, "-shm") == 0;
}

std::string name_of(const char* path) {
  return std::filesystem::path(path).filename().string();
}

}  // namespace

DiskImage read_folder(const std::string& folder) {
  DiskImage image;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (!is_shared_memory(name)) image[name] = read_file(entry.path().string());
  }
  return image;
}

void write_folder(const std::string& folder, const DiskImage& image) {
  for (const auto& [name, content] : image) write_file(folder + name, content);
}

std::string kind_and_file(const DiskEvent& event) {
  constexpr std::array<const char*, 5> kKinds = {"create", "write", "truncate", "sync", "delete"};
  return std::string(kKinds.at(static_cast<std::size_t>(event.kind))) + " " + event.file;
}

std::ostream& operator<<(std::ostream& out, const DiskEvent& event) {
  out << kind_and_file(event);
  if (event.kind == DiskEvent::kWrite) out << " " << event.bytes.size() << " bytes";
  if (event.kind == DiskEvent::kWrite || event.kind == DiskEvent::kTruncate) {
    out << " at " << event.offset;
  }
  if (event.folder_synced) out << " and sync the folder";
  return out;
}

DiskRecorder::DiskRecorder(DiskImage start, Syncs syncs) : syncs_(syncs) {
  record_.start = std::move(start);
}

void DiskRecorder::add(DiskEvent event) {
  if (!ended_) record_.events.push_back(std::move(event));
}

int DiskRecorder::open(const char* path, ShimFile& file, int flags, int* out_flags) {
  // A file without a path is a temporary file of SQLite, which no other process sees.
  if (path == nullptr) return VfsShim::open(path, file, flags, out_flags);
  const bool create = (flags & SQLITE_OPEN_CREATE) != 0;
  const bool there = file_exists(path);
  const int rc = VfsShim::open(path, file, flags, out_flags);
  if (rc != SQLITE_OK) return rc;
  if (create && !there) add({DiskEvent::kCreate, name_of(path), 0, ""});
  if (create && (flags & kJournals) != 0) folder_unsynced_.insert(&file);
  return rc;
}

int DiskRecorder::remove(const char* path, int sync_folder) {
  const int rc = VfsShim::remove(path, sync_folder);
  if (rc == SQLITE_OK) {
    const bool synced = sync_folder != 0 && syncs_ == Syncs::kCounted;
    add({DiskEvent::kDelete, name_of(path), 0, "", synced});
  }
  return rc;
}

int DiskRecorder::close(ShimFile& file) {
  folder_unsynced_.erase(&file);
  return VfsShim::close(file);
}

int DiskRecorder::write(ShimFile& file, const void* data, int size, int64_t offset) {
  const int rc = VfsShim::write(file, data, size, offset);
  if (rc == SQLITE_OK && file.path != nullptr) {
    add({DiskEvent::kWrite, name_of(file.path), offset,
         std::string(static_cast<const char*>(data), static_cast<std::size_t>(size))});
  }
  return rc;
}

int DiskRecorder::truncate(ShimFile& file, int64_t size) {
  const int rc = VfsShim::truncate(file, size);
  if (rc == SQLITE_OK && file.path != nullptr) {
    add({DiskEvent::kTruncate, name_of(file.path), size, ""});
  }
  return rc;
}

int DiskRecorder::sync(ShimFile& file, int flags) {
  const int rc = VfsShim::sync(file, flags);
  if (rc == SQLITE_OK && file.path != nullptr && syncs_ == Syncs::kCounted) {
    const bool folder = folder_unsynced_.erase(&file) != 0;
    add({DiskEvent::kSync, name_of(file.path), 0, "", folder});
  }
  return rc;
}

}  // namespace corvan_test
