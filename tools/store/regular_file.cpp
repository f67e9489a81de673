#include "tools/store/regular_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr const char* kNotRegular = ": not a file";

// Reads until all is read. Returns the number of bytes; `error` is errno, or 0.
std::size_t read_all(int file, std::uint64_t at, std::size_t size, char* bytes, int& error) {
  std::size_t done = 0;
  error = 0;
  while (done < size) {
    const auto count = read_some_at(file, at + done, bytes + done, size - done);
    if (count < 0) error = errno;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

}  // namespace

void require_regular_or_missing(const std::string& path, const std::string& advice) {
  FileStatus status;
  if (read_status(path, status)) {
    if (status.kind != FileKind::kRegular) throw ToolError(path + kNotRegular + advice);
    return;
  }
  const int error = errno;
  if (read_status_of_link(path, status) && status.kind == FileKind::kLink) {
    throw ToolError(path + ": a dangling link" + advice);
  }
  if (error != ENOENT && error != ENOTDIR) throw ToolError(path + ": " + std::strerror(error));
}

ReadOnlyFile::ReadOnlyFile(const std::string& path, bool may_be_missing) : path_(path) {
  if (read_status(path, status_) && status_.kind != FileKind::kRegular) {
    throw ToolError(path + kNotRegular);
  }
  status_ = {};
  // Another process may have replaced the file meanwhile.
  file_ = open_at_once(path);
  if (file_ < 0) {
    if (may_be_missing && errno == ENOENT) return;
    throw ToolError(path + ": " + std::strerror(errno));
  }
  if (!read_status(file_, status_) || status_.kind != FileKind::kRegular) {
    close_file(file_);
    throw ToolError(path + kNotRegular);
  }
}

ReadOnlyFile::~ReadOnlyFile() {
  if (file_ >= 0) close_file(file_);
}

bool ReadOnlyFile::read(std::uint64_t at, std::size_t size, std::string& bytes) const {
  bytes.resize(size);
  int error = 0;
  return file_ >= 0 && read_all(file_, at, size, bytes.data(), error) == size;
}

std::size_t ReadOnlyFile::read_some(std::uint64_t at, std::size_t size, char* bytes) const {
  int error = 0;
  const std::size_t count = read_all(file_, at, size, bytes, error);
  if (error != 0) throw ToolError(path_ + ": " + std::strerror(error));
  return count;
}

std::vector<ReadOnlyFile::Stretch> ReadOnlyFile::data() const {
  std::vector<Stretch> stretches;
  for (std::uint64_t at = 0; at < size();) {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    if (!find_data(file_, at, begin, end)) return {{0, size()}};
    if (begin < 0 || static_cast<std::uint64_t>(begin) >= size()) break;
    at = static_cast<std::uint64_t>(end);
    stretches.push_back({static_cast<std::uint64_t>(begin), std::min(at, size())});
  }
  return stretches;
}

bool ReadOnlyFile::has_changed() const {
  FileStatus now;
  if (file_ < 0) return read_status(path_, now);
  return !read_status(file_, now) || now.size != status_.size || now.seconds != status_.seconds ||
         now.nanoseconds != status_.nanoseconds;
}

}  // namespace corvan_tool
