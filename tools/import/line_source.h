// The lines of text files.

#ifndef TOOLS_IMPORT_LINE_SOURCE_H_
#define TOOLS_IMPORT_LINE_SOURCE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace corvan_tool {

// The lines of several files, one after the other. A line of a pipe is there as soon as it was
// written.
class LineSource {
 public:
  // Opens all files, so that a wrong name is found before anything is stored. "-" is standard
  // input. A line of more than `longest` MiB is an error. Throws ToolError, as next() does when a
  // file cannot be read.
  LineSource(const std::vector<std::string>& names, std::size_t longest);
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;
  ~LineSource();

  // From now on a line of more than `longest` MiB is an error.
  void limit(std::size_t longest) { longest_ = longest; }

  // The next line without its end; false after the last one.
  bool next(std::string& line);

  // Where the last line stood, as "file:line".
  std::string place() const;

 private:
  struct Input {
    std::string name;
    int fd;
  };

  bool read_line(std::string& line);
  bool fill();

  std::size_t longest_;
  std::vector<Input> inputs_;
  std::size_t current_ = 0;
  std::size_t line_number_ = 0;
  std::vector<char> block_;  // what was read of the current file and not yet taken, from begin_
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_LINE_SOURCE_H_
