// Reads regular files. Anything else is refused before it is opened: opening a FIFO waits for a
// writer, a device may be endless, and opening a device may have side effects.

#ifndef TOOLS_STORE_REGULAR_FILE_H_
#define TOOLS_STORE_REGULAR_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/platform/files.h"

namespace corvan_tool {

// Throws ToolError unless `path`, or the file that it links to, is a regular file or missing. A
// dangling link is refused as well, because SQLite would create the file that it names. `advice` is
// appended to the error.
void require_regular_or_missing(const std::string& path, const std::string& advice = "");

class ReadOnlyFile {
 public:
  // Throws ToolError if the file cannot be opened or is not regular. With `may_be_missing`, a
  // missing file is treated as an empty one.
  ReadOnlyFile(const std::string& path, bool may_be_missing);
  ReadOnlyFile(const ReadOnlyFile&) = delete;
  ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;
  ~ReadOnlyFile();

  bool is_there() const { return file_ >= 0; }

  // The size when the file was opened; 0 for a missing file.
  std::uint64_t size() const { return status_.size; }

  // False if not all of it could be read.
  bool read(std::uint64_t at, std::size_t size, std::string& bytes) const;

  // Reads up to `size` bytes into `bytes`, fewer only at the end of the file, and returns their
  // number. Throws ToolError if they cannot be read.
  std::size_t read_some(std::uint64_t at, std::size_t size, char* bytes) const;

  // The parts of the file, up to size(), that are not holes, in order. The whole file if the file
  // system does not report holes.
  struct Stretch {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    bool operator==(const Stretch& other) const { return begin == other.begin && end == other.end; }
  };
  std::vector<Stretch> data() const;

  // Whether the file was written to since it was opened.
  bool has_changed() const;

 private:
  const std::string path_;
  int file_ = -1;  // below 0: missing
  FileStatus status_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_REGULAR_FILE_H_
