// Open files. Paths are UTF-8. A file is a descriptor, below 0 if it could not be opened; then, and
// when another function fails, errno says why. Files are binary, and no child process inherits
// them.

#ifndef TOOLS_PLATFORM_FILES_H_
#define TOOLS_PLATFORM_FILES_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvan_tool {

constexpr int kStandardInput = 0;

enum class FileKind { kRegular, kFolder, kLink, kOther };

struct FileStatus {
  FileKind kind = FileKind::kOther;
  std::uint64_t size = 0;
  std::int64_t seconds = 0;  // when the content was changed last
  std::int64_t nanoseconds = 0;
};

// Return false if there is no such file, or its status cannot be read. The first two follow links.
bool read_status(const std::string& path, FileStatus& status);
bool read_status(int file, FileStatus& status);
bool read_status_of_link(const std::string& path, FileStatus& status);

// Opens an existing file.
int open_to_read(const std::string& path);

// As open_to_read(), but does not wait for the other end of a FIFO. A file server may hold a lease
// on a regular file; it releases the lease when asked, or the system breaks it. This waits for
// that.
int open_at_once(const std::string& path);

// Creates a file that only its owner can open, for reading and writing. Fails if it exists.
int create_file(const std::string& path);

// Opens a file for writing, creates it if it is missing, and empties it.
int create_or_empty_file(const std::string& path);

void close_file(int file);

// Reads up to `size` bytes, from the current position or from `at`, and returns their number. 0 is
// the end of the file; below 0 is a failure.
std::ptrdiff_t read_some(int file, char* bytes, std::size_t size);
std::ptrdiff_t read_some_at(int file, std::uint64_t at, char* bytes, std::size_t size);

// Return false unless everything was done.
bool write_at(int file, std::uint64_t at, const char* bytes, std::size_t size);
bool set_file_size(int file, std::uint64_t size);

// Sets `begin` and `end` to the first part of the file behind `at` that is not a hole. Both are
// below 0 if there is none. Returns false if the file system does not report holes.
bool find_data(int file, std::uint64_t at, std::int64_t& begin, std::int64_t& end);

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_FILES_H_
