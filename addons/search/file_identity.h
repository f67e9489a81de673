// Which file a path leads to.

#ifndef ADDONS_SEARCH_FILE_IDENTITY_H_
#define ADDONS_SEARCH_FILE_IDENTITY_H_

#include <cstdint>
#include <string>

namespace Corvan::search {

// The file that a path leads to at one moment. A store that SQLite finds damaged is deleted and
// created again; a connection to the old file would go on reading it.
struct FileIdentity {
  uint64_t device = 0;
  uint64_t number = 0;  // 0: there was no file

  explicit operator bool() const { return number != 0; }
  bool operator==(const FileIdentity& other) const {
    return device == other.device && number == other.number;
  }
  bool operator!=(const FileIdentity& other) const { return !(*this == other); }
};

// Implemented in platform_posix.cpp and platform_windows.cpp.
FileIdentity identity_of(const std::string& file);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FILE_IDENTITY_H_
