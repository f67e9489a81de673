#include "tests/tools/leased_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

namespace corvan_test {

LeasedFile::LeasedFile(const std::string& path)
    : fd_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
#ifdef F_SETLEASE
  // The lease's signal when a process opens the file; by default it is ignored.
  held_ = fcntl(fd_, F_SETSIG, SIGURG) == 0 && fcntl(fd_, F_SETLEASE, F_WRLCK) == 0;
#endif
}

LeasedFile::~LeasedFile() {
  if (fd_ >= 0) close(fd_);
}

bool LeasedFile::wait_for_opener() const {
#ifdef F_SETLEASE
  for (int i = 0; i < 5000; ++i) {
    if (fcntl(fd_, F_GETLEASE) != F_WRLCK) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
#endif
  return false;
}

}  // namespace corvan_test
