#include "tools/store/pending_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

#include "tools/store/interrupt.h"
#include "tools/store/output_place.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

// The pattern for the temporary name beside a place. Long names are truncated at a UTF-8 character
// boundary.
std::string temporary_name(const fs::path& place) {
  constexpr const char* kMark = ".unfinished-XXXXXX";
  constexpr std::size_t kLongest = NAME_MAX - std::char_traits<char>::length(kMark);
  std::string name = place.filename().string();
  if (name.size() > kLongest) {
    std::size_t size = kLongest;
    while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
    name.resize(size);
  }
  return (place.parent_path() / (name + kMark)).string();
}

// Creates an empty file or folder for its owner alone, and returns its path.
std::string make_temporary(const std::string& place, bool is_folder) {
  std::string path = temporary_name(place);
  const int fd = is_folder ? -1 : mkstemp(path.data());
  const bool is_made = is_folder ? mkdtemp(path.data()) != nullptr : fd >= 0;
  if (!is_made) throw ToolError(place + ": cannot be created: " + std::strerror(errno));
  if (fd >= 0) close(fd);
  return path;
}

// Throws ToolError if that cannot be determined.
bool is_there(const std::string& place) {
  std::error_code error;
  const fs::file_type type = fs::symlink_status(place, error).type();
  if (type == fs::file_type::none) throw ToolError(place + ": " + error.message());
  return type != fs::file_type::not_found;
}

void require_folder(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return;
  if (!fs::status_known(status)) throw ToolError(path + ": " + error.message());
  throw ToolError(path + (fs::exists(status) ? ": not a folder; name one"
                                             : ": no such folder; create it first"));
}

// Renames a file or folder unless `to` exists. Returns 0, or the error. Where the file system has
// no atomic operation for this, a file that another process creates meanwhile is replaced.
int rename_to_free(const std::string& from, const std::string& to) {
#ifdef RENAME_NOREPLACE
  const int rc = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (rc == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
#endif
  if (is_there(to)) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

// Makes a file's content, or a folder's entries, durable. Returns false if that fails.
bool sync(const std::string& path) {
  const int fd = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool done =
      fd >= 0 && (fsync(fd) == 0 || errno == EINVAL);  // EINVAL: files of this kind have no sync
  if (fd >= 0) close(fd);
  return done;
}

void require_sync(const std::string& path) {
  if (!sync(path))
    throw ToolError(kept_name(path) + ": " + std::strerror(errno) + "; nothing was kept");
}

// Syncs the whole file system that holds the path: faster than one sync for each of thousands of
// files. False if that is not possible.
bool sync_file_system([[maybe_unused]] const std::string& path) {
  bool done = false;
#ifdef __linux__
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  done = fd >= 0 && syncfs(fd) == 0;
  if (fd >= 0) close(fd);
#endif
  return done;
}

// Makes a file, or a folder with its content, durable.
void require_sync_of_all(const std::string& path) {
  constexpr auto kFew = 16;
  if (fs::is_directory(path)) {
    const fs::recursive_directory_iterator all(path);
    if (std::distance(begin(all), end(all)) > kFew && sync_file_system(path)) return;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
      require_sync(entry.path().string());
    }
  }
  require_sync(path);
}

// Makes the name of a file or folder durable.
void require_sync_of_name(const std::string& place) {
  if (sync(fs::path(place).parent_path().string())) return;
  const int error = errno;
  // The folder may be writable but not readable.
  if (error == EACCES && sync_file_system(place)) return;
  throw ToolError(place + ": is complete, but its folder cannot be synced: " +
                  std::strerror(error) + "; it may be missing after a power loss");
}

}  // namespace

PendingOutput::PendingOutput(std::string place, bool is_folder) : place_(std::move(place)) {
  while (place_.size() > 1 && place_.back() == '/') place_.pop_back();
  if (is_there(place_)) throw ToolError(place_ + ": exists already; name a new place");
  const std::string parent = fs::path(place_).parent_path().string();
  if (!parent.empty()) require_folder(parent);
  require_no_store_file(place_);
  path_ = make_unfinished(place_, [&] { return make_temporary(place_, is_folder); });
}

PendingOutput::~PendingOutput() {
  remove_unfinished(path_);
}

void PendingOutput::keep() {
  require_sync_of_all(path_);
  keep_unfinished(path_, [this] {
    const int error = rename_to_free(path_, place_);
    if (error == EEXIST) {
      throw ToolError(place_ + ": was created by another process meanwhile; nothing was kept");
    }
    if (error != 0) throw ToolError(place_ + ": " + std::strerror(error) + "; nothing was kept");
  });
  require_sync_of_name(place_);
}

}  // namespace corvan_tool
