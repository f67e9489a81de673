#include "tools/import/line_source.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "tools/platform/files.h"
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
    if (input.file != kStandardInput) close_file(input.file);
  }
}

LineSource::Input LineSource::open_input(const std::string& name) {
  if (name == "-" && has_read_standard_input()) {
    throw ToolError("standard input: was read for the key; name a file for one of them");
  }
  if (name == "-") return {"standard input", kStandardInput};
  std::error_code ignored;  // opening reports the same error
  if (std::filesystem::is_directory(std::filesystem::u8path(name), ignored)) {
    throw ToolError(name + ": is a folder; name a file");
  }
  const int file = open_to_read(name);
  if (file < 0) throw ToolError(name + ": " + std::strerror(errno));
  return {name, file};
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
  const auto size = read_some(inputs_[current_].file, block_.data(), block_.size());
  if (size < 0) {
    throw ToolError(place() + ": cannot be read: " + std::strerror(errno));
  }
  begin_ = 0;
  end_ = static_cast<std::size_t>(size);
  return size > 0;
}

}  // namespace corvan_tool
