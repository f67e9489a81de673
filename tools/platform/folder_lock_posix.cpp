#include "tools/platform/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace corvan_tool {

namespace {

int descriptor(std::intptr_t handle) {
  return static_cast<int>(handle);
}

// Whether the name still belongs to the open folder, which another process may have removed or
// replaced.
bool is_still(const std::string& folder, int fd) {
  struct stat named = {};
  struct stat opened = {};
  return lstat(folder.c_str(), &named) == 0 && fstat(fd, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

}  // namespace

LockableFolder::LockableFolder(const std::string& folder)
    : folder_(folder),
      handle_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
      error_(handle_ < 0 ? errno : 0) {}

LockableFolder::~LockableFolder() {
  if (handle_ >= 0) close(descriptor(handle_));
}

bool LockableFolder::is_own() const {
  struct stat status = {};
  return handle_ >= 0 && fstat(descriptor(handle_), &status) == 0 && status.st_uid == geteuid();
}

Locking LockableFolder::lock() {
  if (handle_ < 0) return error_ == ENOENT ? Locking::kGone : Locking::kFailed;
  int rc = 0;
  do {
    rc = flock(descriptor(handle_), LOCK_EX | LOCK_NB);
  } while (rc != 0 && errno == EINTR);
  if (rc == 0) return is_still(folder_, descriptor(handle_)) ? Locking::kLocked : Locking::kGone;
  if (errno == EWOULDBLOCK) return Locking::kGone;
  error_ = errno;
  const bool has_no_locks = error_ == EBADF || error_ == EINVAL || error_ == ENOLCK ||
                            error_ == ENOSYS || error_ == EOPNOTSUPP;
  return has_no_locks ? Locking::kNoLocks : Locking::kFailed;
}

}  // namespace corvan_tool
