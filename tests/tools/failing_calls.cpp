// Preloaded into a program: makes syncs or reads of files fail as on a bad disk.
//
// CORVAN_FAIL_CALL: "sync" or "read".
// CORVAN_FAIL_IN: only calls for files whose path contains this text count.
// CORVAN_FAIL_AT: the number of the call that fails, or "N+" for this call and all later ones.
// CORVAN_FAIL_MARK: a file that is created when a call has failed.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* setting(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool is_counted(int fd, const char* call) {
  std::array<char, 4096> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return std::strcmp(setting("CORVAN_FAIL_CALL"), call) == 0 &&
         readlink(link.c_str(), path.data(), path.size() - 1) > 0 &&
         std::strstr(path.data(), setting("CORVAN_FAIL_IN")) != nullptr;
}

// Returns whether the call must fail, and sets errno then.
bool fails(int fd, const char* call, int failure = EIO) {
  static long count = 0;
  const int error = errno;
  if (!is_counted(fd, call)) {
    errno = error;
    return false;
  }
  ++count;
  char* end = nullptr;
  const long first = std::strtol(setting("CORVAN_FAIL_AT"), &end, 10);
  if (count < first || (count > first && *end != '+')) return false;
  close(open(setting("CORVAN_FAIL_MARK"), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  errno = failure;
  return true;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int fsync(int fd) {
  return fails(fd, "sync") ? -1 : next<int(int)>("fsync")(fd);
}

extern "C" int fdatasync(int fd) {
  return fails(fd, "sync") ? -1 : next<int(int)>("fdatasync")(fd);
}

extern "C" ssize_t pread64(int fd, void* data, size_t size, off64_t at) {
  using Read = ssize_t(int, void*, size_t, off64_t);
  // SQLite treats EIO as damage here.
  return fails(fd, "read", ESTALE) ? -1 : next<Read>("pread64")(fd, data, size, at);
}
