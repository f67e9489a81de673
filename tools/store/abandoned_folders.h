// Temporary folders that a killed process left behind.

#ifndef TOOLS_STORE_ABANDONED_FOLDERS_H_
#define TOOLS_STORE_ABANDONED_FOLDERS_H_

#include <string>

#include "tools/platform/folder_lock.h"

namespace corvan_tool {

// The prefix of the names of temporary folders. Six letters and digits follow.
constexpr const char* kTemporaryPrefix = "corvan-look-";

// Locks a temporary folder, so that other processes know that it is in use. The system releases the
// lock whenever the process ends. A process id would not do: ids are reused, and mean nothing in
// another container that shares the folder.
class FolderLock {
 public:
  // Throws ToolError if the folder cannot be locked although its file system has locks.
  explicit FolderLock(const std::string& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  // False if another process removes the folder: it found the folder before this lock was taken,
  // and treats it as abandoned.
  bool is_held() const { return is_held_; }

 private:
  LockableFolder folder_;
  bool is_held_ = false;
};

// Removes this user's temporary folders that no process has locked. Folders stay if they cannot be
// removed, or if their file system has no locks.
void remove_abandoned_folders();

}  // namespace corvan_tool

#endif  // TOOLS_STORE_ABANDONED_FOLDERS_H_
