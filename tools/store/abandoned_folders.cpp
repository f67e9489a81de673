#include "tools/store/abandoned_folders.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

enum LockResult { kLocked, kGone, kNoLocks, kLockFailed };

// Whether the name still belongs to the open folder, which another process may have removed or
// replaced.
bool is_still(const std::string& folder, int fd) {
  struct stat named = {};
  struct stat opened = {};
  return lstat(folder.c_str(), &named) == 0 && fstat(fd, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

int open_folder(const std::string& folder) {
  return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

LockResult lock_folder(const std::string& folder, int fd) {
  int rc = 0;
  do {
    rc = flock(fd, LOCK_EX | LOCK_NB);
  } while (rc != 0 && errno == EINTR);
  if (rc == 0) return is_still(folder, fd) ? kLocked : kGone;
  if (errno == EWOULDBLOCK) return kGone;
  const bool has_no_locks = errno == EBADF || errno == EINVAL || errno == ENOLCK ||
                            errno == ENOSYS || errno == EOPNOTSUPP;
  return has_no_locks ? kNoLocks : kLockFailed;
}

bool is_temporary_name(std::string_view name) {
  constexpr std::string_view kPrefix = kTemporaryPrefix;
  constexpr std::size_t kRandom = 6;
  if (name.size() != kPrefix.size() + kRandom || name.substr(0, kPrefix.size()) != kPrefix) {
    return false;
  }
  const std::string_view random = name.substr(kPrefix.size());
  return std::all_of(random.begin(), random.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
}

void remove_if_abandoned(const std::string& folder) {
  const int fd = open_folder(folder);
  if (fd < 0) return;
  struct stat status = {};
  // An owner that has created the folder but not yet locked it notices, and creates another one.
  if (fstat(fd, &status) == 0 && status.st_uid == geteuid() && lock_folder(folder, fd) == kLocked) {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
  close(fd);
}

}  // namespace

FolderLock::FolderLock(const std::string& folder) : fd_(open_folder(folder)) {
  if (fd_ < 0 && errno == ENOENT) return;
  const LockResult result = fd_ < 0 ? kLockFailed : lock_folder(folder, fd_);
  held_ = result == kLocked || result == kNoLocks;
  if (result != kLockFailed) return;
  const std::string why = std::strerror(errno);
  if (fd_ >= 0) close(fd_);
  throw ToolError(folder + ": cannot be locked: " + why);
}

FolderLock::~FolderLock() {
  if (fd_ >= 0) close(fd_);
}

void remove_abandoned_folders() {
  std::error_code error;
  const fs::path parent = fs::temp_directory_path(error);
  if (error) return;
  for (fs::directory_iterator one(parent, error), end; !error && one != end; one.increment(error)) {
    if (is_temporary_name(one->path().filename().string())) {
      remove_if_abandoned(one->path().string());
    }
  }
}

}  // namespace corvan_tool
