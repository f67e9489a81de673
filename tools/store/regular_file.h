// Files that are only read. What is no regular file is refused before it is opened: opening a FIFO
// waits for a writer, a device may have no end, and opening one may have effects.

#ifndef TOOLS_STORE_REGULAR_FILE_H_
#define TOOLS_STORE_REGULAR_FILE_H_

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvan_tool {

// Throws ToolError unless `path`, or the file that it links to, is a regular file or missing. A
// link to nothing is refused as well: SQLite would make the file that it names. `advice` is the end
// of the error.
void require_regular_or_missing(const std::string& path, const std::string& advice = "");

class ReadOnlyFile {
 public:
  // Throws ToolError when it cannot be opened or is no regular file; with `may_be_missing` a file
  // that is not there is an empty one.
  ReadOnlyFile(const std::string& path, bool may_be_missing);
  ReadOnlyFile(const ReadOnlyFile&) = delete;
  ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;
  ~ReadOnlyFile();

  bool is_there() const { return fd_ >= 0; }

  // When it was opened; 0 for a missing file.
  std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }

  // False when not all of it could be read, as on a failing disk.
  bool read(std::uint64_t at, std::size_t size, std::string& bytes) const;

  // Reads up to `size` bytes into `bytes`: their number, less only at the file's end. Throws
  // ToolError when they cannot be read.
  std::size_t read_some(std::uint64_t at, std::size_t size, char* bytes) const;

  // The stretches of the file, up to size(), that take room on the disk, in order; the rest is
  // holes, which read as zeros. Where the file system does not tell, it is all one stretch.
  struct Stretch {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    bool operator==(const Stretch& other) const { return begin == other.begin && end == other.end; }
  };
  std::vector<Stretch> data() const;

  // Whether something was written to it since it was opened.
  bool has_changed() const;

 private:
  const std::string path_;
  int fd_ = -1;  // below 0: not there
  struct stat status_ = {};
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_REGULAR_FILE_H_
