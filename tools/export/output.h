// The file that an export is written to.

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

// Throws ToolError with the reason why `path` cannot be written. `path` is a PendingOutput, or is
// inside one.
[[noreturn]] void fail_to_write(const std::string& path, const std::string& error);

// A file, or standard output. Each function throws ToolError if it cannot write.
class ExportOutput {
 public:
  enum Kind { kNew, kPresent };

  // An empty path is standard output. A new file is created. A present file must exist and be
  // empty; it is not created again if an interrupt has removed it. Files and bytes are added to
  // `counts`.
  ExportOutput(std::string path, Kind kind, ExportCounts& counts);

  void write(std::string_view text);

  // Call this at the end: the destructor does not check whether everything was written.
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
