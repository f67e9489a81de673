// Locks on folders. The system releases them whenever the process ends.

#ifndef TOOLS_PLATFORM_FOLDER_LOCK_H_
#define TOOLS_PLATFORM_FOLDER_LOCK_H_

#include <cstdint>
#include <string>

namespace corvan_tool {

enum class Locking {
  kLocked,
  kGone,     // another process has locked, removed or replaced the folder
  kNoLocks,  // the file system has no locks
  kFailed,   // error() says why
};

// An open folder, not a link to one. The lock ends with this object. The folder can be removed
// meanwhile.
class LockableFolder {
 public:
  explicit LockableFolder(const std::string& folder);
  LockableFolder(const LockableFolder&) = delete;
  LockableFolder& operator=(const LockableFolder&) = delete;
  ~LockableFolder();

  // Whether the user of this process owns the folder. False if it could not be opened.
  bool is_own() const;

  // Does not wait for another process.
  Locking lock();

  // The number of errno of the failure.
  int error() const { return error_; }

 private:
  const std::string folder_;
  std::intptr_t handle_ = -1;
  int error_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_FOLDER_LOCK_H_
