#include "tools/import/line_source.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tools/store/key_source.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kReadBlock = std::size_t{64} << 10;

}  // namespace

LineSource::LineSource(const std::vector<std::string>& names, std::size_t limit)
    : limit_(limit), block_(kReadBlock) {
  for (const std::string& name : names) inputs_.push_back(open_input(name));
}

LineSource::~LineSource() {
  for (const Input& input : inputs_) {
    if (input.fd != STDIN_FILENO) close(input.fd);
  }
}

LineSource::Input LineSource::open_input(const std::string& name) {
  if (name == "-" && has_read_standard_input()) {
    throw ToolError("standard input: was read for the key; name a file for one of them");
  }
  if (name == "-") return {"standard input", STDIN_FILENO};
  std::error_code ignored;  // open() reports the same error
  if (std::filesystem::is_directory(name, ignored)) {
    throw ToolError(name + ": is a folder; name a file");
  }
  const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw ToolError(name + ": " + std::strerror(errno));
  return {name, fd};
}

bool LineSource::next(std::string& line) {
  while (current_ < inputs_.size()) {
    if (read_line(line)) {
      ++line_number_;
      return true;
    }
    ++current_;
    line_number_ = 0;
  }
  return false;
}

std::string LineSource::place_of(std::size_t line_number) const {
  return fmt::format("{}:{}", inputs_[current_].name, line_number);
}

// Returns false at the end of the current file.
bool LineSource::read_line(std::string& line) {
  line.clear();
  while (begin_ < end_ || fill()) {
    if (take_until_line_end(line)) return true;
    // A file without line ends must not fill the memory.
    if (line.size() > limit_ * kMebibyte) {
      throw ToolError(fmt::format("{}: longer than {} MiB", place_of(line_number_ + 1), limit_));
    }
  }
  return !line.empty();
}

// Appends the bytes of the block up to the next line end, or all of them. Returns whether there was
// a line end.
bool LineSource::take_until_line_end(std::string& line) {
  const char* const from = block_.data() + begin_;
  const auto* const line_end = static_cast<const char*>(std::memchr(from, '\n', end_ - begin_));
  const bool is_found = line_end != nullptr;
  const std::size_t size = is_found ? static_cast<std::size_t>(line_end - from) : end_ - begin_;
  line.append(from, size);
  begin_ += size + (is_found ? 1 : 0);
  return is_found;
}

// Reads the next block of the current file. Returns false at the end of the file.
bool LineSource::fill() {
  ssize_t size = 0;
  do {
    size = read(inputs_[current_].fd, block_.data(), block_.size());
  } while (size < 0 && errno == EINTR);
  if (size < 0) {
    throw ToolError(place() + ": cannot be read: " + std::strerror(errno));
  }
  begin_ = 0;
  end_ = static_cast<std::size_t>(size);
  return size > 0;
}

}  // namespace corvan_tool
