#include "tools/import/line_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kReadBlock = std::size_t{64} << 10;

}  // namespace

LineSource::LineSource(const std::vector<std::string>& names, std::size_t longest)
    : longest_(longest), block_(kReadBlock) {
  for (const std::string& name : names) {
    if (name == "-") {
      inputs_.push_back({"standard input", STDIN_FILENO});
      continue;
    }
    std::error_code error;  // left to open()
    if (std::filesystem::is_directory(name, error))
      throw ToolError(name + ": is a folder; name a file");
    const int fd = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw ToolError(name + ": " + std::strerror(errno));
    inputs_.push_back({name, fd});
  }
}

LineSource::~LineSource() {
  for (const Input& input : inputs_) {
    if (input.fd != STDIN_FILENO) close(input.fd);
  }
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

std::string LineSource::place() const {
  return inputs_[current_].name + ":" + std::to_string(line_number_);
}

// False at the end of the current file.
bool LineSource::read_line(std::string& line) {
  line.clear();
  while (begin_ < end_ || fill()) {
    const char* const from = block_.data() + begin_;
    const auto* const line_end = static_cast<const char*>(std::memchr(from, '\n', end_ - begin_));
    const std::size_t size =
        line_end == nullptr ? end_ - begin_ : static_cast<std::size_t>(line_end - from);
    line.append(from, size);
    begin_ += size;
    if (line_end != nullptr) {
      ++begin_;
      return true;
    }
    // A file without line ends must not fill the memory.
    if (line.size() > longest_ * kMebibyte) {
      throw ToolError(inputs_[current_].name + ":" + std::to_string(line_number_ + 1) +
                      ": longer than " + std::to_string(longest_) + " MiB");
    }
  }
  return !line.empty();
}

// Reads the next block of the current file; false at its end.
bool LineSource::fill() {
  ssize_t size = 0;
  do {
    size = read(inputs_[current_].fd, block_.data(), block_.size());
  } while (size < 0 && errno == EINTR);
  if (size < 0) {
    throw ToolError(place() + ": cannot be read further: " + std::strerror(errno));
  }
  begin_ = 0;
  end_ = static_cast<std::size_t>(size);
  return size > 0;
}

}  // namespace corvan_tool
