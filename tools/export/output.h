// Where an export goes.

#ifndef TOOLS_EXPORT_OUTPUT_H_
#define TOOLS_EXPORT_OUTPUT_H_

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace corvan_tool {

// How much an export has written.
struct ExportCounts {
  int64_t sessions = 0;
  int64_t messages = 0;
  int64_t files = 0;
  int64_t bytes = 0;
};

// Throws ToolError: `path`, at or below an Unfinished, cannot be written because of `error`.
[[noreturn]] void fail_to_write(const std::string& path, const std::string& error);

// A file, or standard output. Each call throws ToolError when it cannot write.
class ExportOutput {
 public:
  enum Kind { kNew, kPresent };

  // An empty path is standard output. A present file must be there and empty: one that an interrupt
  // has removed does not come back. What is written is counted in `counts`.
  ExportOutput(std::string path, Kind kind, ExportCounts& counts);

  void write(std::string_view text);

  // To be called at the end: what the object's end alone would write is not checked.
  void close();

 private:
  void require_good() const;

  const std::string path_;
  ExportCounts& counts_;
  std::ofstream file_;
  std::ostream& stream_;
};

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_OUTPUT_H_
