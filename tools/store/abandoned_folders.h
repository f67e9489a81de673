// Temporary folders that a killed process left behind.

#ifndef TOOLS_STORE_ABANDONED_FOLDERS_H_
#define TOOLS_STORE_ABANDONED_FOLDERS_H_

#include <string>

namespace corvan_tool {

// What the names of temporary folders begin with; six letters and digits follow.
constexpr const char* kTemporaryPrefix = "corvan-look-";

// Tells other processes that a temporary folder is in use, while the object lives. The system takes
// the lock back when the process ends, however it does. An id of a process would prove less: ids
// are given again, and mean nothing in another container that shares the folder.
class FolderLock {
 public:
  // Throws ToolError when the folder cannot be locked although its file system has locks.
  explicit FolderLock(const std::string& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

  // False when another process took the folder for abandoned before it was locked, and removes it.
  bool is_held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
};

// Removes the temporary folders of this user that no living process has locked, from the folder for
// temporary files. What cannot be removed, or lies on a file system without locks, stays.
void remove_abandoned_folders();

}  // namespace corvan_tool

#endif  // TOOLS_STORE_ABANDONED_FOLDERS_H_
