#include "tools/platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace corvan_tool {

namespace {

FileKind kind_of(const struct stat& from) {
  if (S_ISREG(from.st_mode)) return FileKind::kRegular;
  if (S_ISDIR(from.st_mode)) return FileKind::kFolder;
  return S_ISLNK(from.st_mode) ? FileKind::kLink : FileKind::kOther;
}

bool take_status(int rc, const struct stat& from, FileStatus& status) {
  if (rc != 0) return false;
  status.kind = kind_of(from);
  status.size = static_cast<std::uint64_t>(from.st_size);
  status.seconds = from.st_mtim.tv_sec;
  status.nanoseconds = from.st_mtim.tv_nsec;
  return true;
}

}  // namespace

bool read_status(const std::string& path, FileStatus& status) {
  struct stat found = {};
  return take_status(stat(path.c_str(), &found), found, status);
}

bool read_status(int file, FileStatus& status) {
  struct stat found = {};
  return take_status(fstat(file, &found), found, status);
}

bool read_status_of_link(const std::string& path, FileStatus& status) {
  struct stat found = {};
  return take_status(lstat(path.c_str(), &found), found, status);
}

int open_to_read(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
}

int open_at_once(const std::string& path) {
  constexpr int kAttempts = 3000;
  constexpr std::chrono::milliseconds kPause{20};
  for (int attempt = 0;; ++attempt) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file >= 0 || errno != EWOULDBLOCK || attempt == kAttempts) return file;
    std::this_thread::sleep_for(kPause);
  }
}

int create_file(const std::string& path) {
  return open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
}

int create_or_empty_file(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

void close_file(int file) {
  close(file);
}

std::ptrdiff_t read_some(int file, char* bytes, std::size_t size) {
  ssize_t count = -1;
  do count = read(file, bytes, size);
  while (count < 0 && errno == EINTR);
  return count;
}

std::ptrdiff_t read_some_at(int file, std::uint64_t at, char* bytes, std::size_t size) {
  ssize_t count = -1;
  do count = pread(file, bytes, size, static_cast<off_t>(at));
  while (count < 0 && errno == EINTR);
  return count;
}

bool write_at(int file, std::uint64_t at, const char* bytes, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = pwrite(file, bytes + done, size - done, static_cast<off_t>(at + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool set_file_size(int file, std::uint64_t size) {
  return ftruncate(file, static_cast<off_t>(size)) == 0;
}

bool find_data([[maybe_unused]] int file, [[maybe_unused]] std::uint64_t at, std::int64_t& begin,
               std::int64_t& end) {
  begin = -1;
  end = -1;
#ifdef SEEK_DATA
  const off_t data = lseek(file, static_cast<off_t>(at), SEEK_DATA);
  if (data < 0) return errno == ENXIO;  // a hole up to the end
  const off_t hole = lseek(file, data, SEEK_HOLE);
  begin = data;
  end = hole;
  return hole > data;
#else
  return false;
#endif
}

}  // namespace corvan_tool
