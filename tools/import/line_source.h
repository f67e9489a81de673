// The lines of text files.

#ifndef TOOLS_IMPORT_LINE_SOURCE_H_
#define TOOLS_IMPORT_LINE_SOURCE_H_

#include <cstddef>
#include <string>
#include <vector>

namespace corvan_tool {

// Reads the lines of several files, one file after the other. A line that is written to a pipe can
// be read at once.
class LineSource {
 public:
  // Opens all files, so that a wrong name is found before anything is stored. "-" is standard
  // input. A line of more than `limit` MiB is an error. Throws ToolError if a file cannot be
  // opened.
  LineSource(const std::vector<std::string>& names, std::size_t limit);
  LineSource(const LineSource&) = delete;
  LineSource& operator=(const LineSource&) = delete;
  ~LineSource();

  // Changes the limit, in MiB, for the lines that follow.
  void set_limit(std::size_t limit) { limit_ = limit; }

  // Reads the next line, without its line end. Returns false after the last line. Throws ToolError
  // if the file cannot be read or the line is too long.
  bool next(std::string& line);

  // The place of the last line, as "file:line".
  std::string place() const { return place_of(line_number_); }

 private:
  struct Input {
    std::string name;
    int file;
  };

  static Input open_input(const std::string& name);
  std::string place_of(std::size_t line_number) const;
  bool read_line(std::string& line);
  bool take_until_line_end(std::string& line);
  bool fill();

  std::size_t limit_;
  std::vector<Input> inputs_;
  std::size_t current_ = 0;
  std::size_t line_number_ = 0;
  std::vector<char> block_;  // bytes of the current file; begin_ to end_ are not yet taken
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_LINE_SOURCE_H_
