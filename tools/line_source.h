// The lines of text files.

#ifndef TOOLS_LINE_SOURCE_H_
#define TOOLS_LINE_SOURCE_H_

#include <cstddef>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace corvan_tool {

// The lines of several files, one after the other.
class LineSource {
 public:
  // Opens all files, so that a wrong name is found before anything is stored. "-" is standard
  // input. A line of more than `longest` MiB is an error. Throws ToolError, as next() does when a
  // file cannot be read.
  LineSource(const std::vector<std::string>& names, std::size_t longest);

  // The next line without its end; false after the last one.
  bool next(std::string& line);

  // Where the last line stood, as "file:line".
  std::string place() const;

 private:
  struct Input {
    std::string name;
    std::unique_ptr<std::ifstream> file;  // null for standard input
  };

  bool read_line(std::istream& stream, std::string& line);

  const std::size_t longest_;
  std::vector<Input> inputs_;
  std::vector<char> piece_;
  std::size_t current_ = 0;
  std::size_t line_number_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_LINE_SOURCE_H_
