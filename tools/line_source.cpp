#include "tools/line_source.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <utility>

#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kPiece = std::size_t{64} << 10;

}  // namespace

LineSource::LineSource(const std::vector<std::string>& names, std::size_t longest)
    : longest_(longest), piece_(kPiece) {
  for (const std::string& name : names) {
    Input input;
    input.name = name == "-" ? "standard input" : name;
    if (name != "-") {
      if (std::filesystem::is_directory(name)) throw ToolError(name + ": is a folder; name a file");
      input.file = std::make_unique<std::ifstream>(name, std::ios::binary);
      if (!*input.file) throw ToolError(name + ": " + std::strerror(errno));
    }
    inputs_.push_back(std::move(input));
  }
}

bool LineSource::next(std::string& line) {
  while (current_ < inputs_.size()) {
    std::istream& stream = inputs_[current_].file ? *inputs_[current_].file : std::cin;
    if (read_line(stream, line)) {
      ++line_number_;
      return true;
    }
    if (stream.bad()) throw ToolError(place() + ": cannot be read further");
    ++current_;
    line_number_ = 0;
  }
  return false;
}

std::string LineSource::place() const {
  return inputs_[current_].name + ":" + std::to_string(line_number_);
}

// As std::getline, but a file without line ends does not fill the memory.
bool LineSource::read_line(std::istream& stream, std::string& line) {
  line.clear();
  while (true) {
    stream.getline(piece_.data(), static_cast<std::streamsize>(piece_.size()));
    const auto taken = static_cast<std::size_t>(stream.gcount());
    const bool ended = stream.good();  // the line end was taken, too
    line.append(piece_.data(), ended ? taken - 1 : taken);
    if (ended) return true;
    if (stream.bad() || stream.eof()) return !stream.bad() && !line.empty();
    if (line.size() > longest_ * kMebibyte) {
      throw ToolError(inputs_[current_].name + ":" + std::to_string(line_number_ + 1) +
                      ": longer than " + std::to_string(longest_) + " MiB");
    }
    stream.clear();
  }
}

}  // namespace corvan_tool
