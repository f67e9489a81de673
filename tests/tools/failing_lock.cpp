// Preloaded into a program: makes flock() fail.
//
// CORVAN_LOCK_ERROR: the errno, in decimal.
// CORVAN_LOCK_FAILS: the number of calls that fail, from the first on.

#include <dlfcn.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>

namespace {

long number_in(const char* variable) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
}

}  // namespace

extern "C" int flock(int fd, int operation) {
  static long count = 0;
  if (++count <= number_in("CORVAN_LOCK_FAILS")) {
    errno = static_cast<int>(number_in("CORVAN_LOCK_ERROR"));
    return -1;
  }
  return reinterpret_cast<int (*)(int, int)>(dlsym(RTLD_NEXT, "flock"))(fd, operation);
}
