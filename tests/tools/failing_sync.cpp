// Loaded into a program before its libraries: lets syncs of files fail as a bad disk does.
//
// CORVAN_SYNC_IN: syncs count when the file's path contains this text.
// CORVAN_SYNC_FAILS: the number of the one that fails; "N+" for it and all after it.
// CORVAN_SYNC_MARK: a file that is made when one has failed.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

bool is_counted(int fd) {
  std::array<char, 4096> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const char* const wanted = std::getenv("CORVAN_SYNC_IN");
  return wanted != nullptr && readlink(link.c_str(), path.data(), path.size() - 1) > 0 &&
         std::strstr(path.data(), wanted) != nullptr;
}

bool fails(int fd) {
  static long count = 0;
  const char* const which = std::getenv("CORVAN_SYNC_FAILS");
  if (which == nullptr || !is_counted(fd)) return false;
  ++count;
  char* end = nullptr;
  const long first = std::strtol(which, &end, 10);
  if (count < first || (count > first && *end != '+')) return false;
  const char* const mark = std::getenv("CORVAN_SYNC_MARK");
  if (mark != nullptr) close(open(mark, O_WRONLY | O_CREAT, 0600));
  return true;
}

int sync_file(int fd, const char* name) {
  if (fails(fd)) {
    errno = EIO;
    return -1;
  }
  return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, name))(fd);
}

}  // namespace

extern "C" int fsync(int fd) {
  return sync_file(fd, "fsync");
}
extern "C" int fdatasync(int fd) {
  return sync_file(fd, "fdatasync");
}
