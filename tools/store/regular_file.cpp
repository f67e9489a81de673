#include "tools/store/regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr const char* kNotRegular = ": not a file";

// Repeats pread() until all is read. Returns the number of bytes; `error` is errno, or 0.
std::size_t read_all(int fd, std::uint64_t at, std::size_t size, char* bytes, int& error) {
  std::size_t done = 0;
  error = 0;
  while (done < size) {
    const ssize_t count = pread(fd, bytes + done, size - done, static_cast<off_t>(at + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) error = errno;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

// Opens for reading without waiting for the other end of a FIFO. A file server may hold a lease on
// a regular file; it releases the lease when asked, or the system breaks it.
int open_at_once(const std::string& path) {
  constexpr int kAttempts = 3000;
  constexpr std::chrono::milliseconds kPause{20};
  for (int attempt = 0;; ++attempt) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0 || errno != EWOULDBLOCK || attempt == kAttempts) return fd;
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace

void require_regular_or_missing(const std::string& path, const std::string& advice) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) throw ToolError(path + kNotRegular + advice);
    return;
  }
  const int error = errno;
  if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
    throw ToolError(path + ": a dangling link" + advice);
  }
  if (error != ENOENT && error != ENOTDIR) throw ToolError(path + ": " + std::strerror(error));
}

ReadOnlyFile::ReadOnlyFile(const std::string& path, bool may_be_missing) : path_(path) {
  if (stat(path.c_str(), &status_) == 0 && !S_ISREG(status_.st_mode)) {
    throw ToolError(path + kNotRegular);
  }
  status_ = {};
  // Another process may have replaced the file meanwhile.
  fd_ = open_at_once(path);
  if (fd_ < 0) {
    if (may_be_missing && errno == ENOENT) return;
    throw ToolError(path + ": " + std::strerror(errno));
  }
  if (fstat(fd_, &status_) != 0 || !S_ISREG(status_.st_mode)) {
    close(fd_);
    throw ToolError(path + kNotRegular);
  }
}

ReadOnlyFile::~ReadOnlyFile() {
  if (fd_ >= 0) close(fd_);
}

bool ReadOnlyFile::read(std::uint64_t at, std::size_t size, std::string& bytes) const {
  bytes.resize(size);
  int error = 0;
  return fd_ >= 0 && read_all(fd_, at, size, bytes.data(), error) == size;
}

std::size_t ReadOnlyFile::read_some(std::uint64_t at, std::size_t size, char* bytes) const {
  int error = 0;
  const std::size_t count = read_all(fd_, at, size, bytes, error);
  if (error != 0) throw ToolError(path_ + ": " + std::strerror(error));
  return count;
}

std::vector<ReadOnlyFile::Stretch> ReadOnlyFile::data() const {
  if (size() == 0) return {};
#ifdef SEEK_DATA
  std::vector<Stretch> stretches;
  for (std::uint64_t at = 0; at < size();) {
    const off_t begin = lseek(fd_, static_cast<off_t>(at), SEEK_DATA);
    if (begin < 0 && errno == ENXIO) return stretches;  // a hole up to the end
    const off_t end = begin < 0 ? begin : lseek(fd_, begin, SEEK_HOLE);
    if (begin < 0 || end <= begin) return {{0, size()}};
    stretches.push_back(
        {static_cast<std::uint64_t>(begin), std::min(static_cast<std::uint64_t>(end), size())});
    at = static_cast<std::uint64_t>(end);
  }
  return stretches;
#else
  return {{0, size()}};
#endif
}

bool ReadOnlyFile::has_changed() const {
  struct stat now = {};
  if (fd_ < 0) return stat(path_.c_str(), &now) == 0;
  return fstat(fd_, &now) != 0 || now.st_size != status_.st_size ||
         now.st_mtim.tv_sec != status_.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

}  // namespace corvan_tool
