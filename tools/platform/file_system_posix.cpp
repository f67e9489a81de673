#include "tools/platform/file_system.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace corvan_tool {

namespace fs = std::filesystem;

const std::size_t kLongestName = NAME_MAX;

bool is_path_delimiter(char character) {
  return character == '/';
}

std::string comparable_name(std::string name) {
  return name;
}

std::string path_text(const fs::path& path) {
  return path.string();
}

fs::path temporary_folder(std::error_code& error) {
  return fs::temp_directory_path(error);
}

int make_private_file(std::string& path) {
  const int file = mkstemp(path.data());
  if (file < 0) return errno;
  close(file);
  return 0;
}

int make_private_folder(std::string& path) {
  return mkdtemp(path.data()) == nullptr ? errno : 0;
}

std::vector<std::string> content_of(const std::string& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    paths.push_back(entry.path().string());
  }
  return paths;
}

int remove_file(const std::string& path) {
  return std::remove(path.c_str()) == 0 ? 0 : errno;
}

void remove_with_content(const std::string& path, std::error_code& error) {
  fs::remove_all(path, error);
}

int rename_to_free(const std::string& from, const std::string& to) {
#ifdef RENAME_NOREPLACE
  const int rc = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (rc == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
#endif
  std::error_code error;
  const fs::file_type type = fs::symlink_status(to, error).type();
  if (type == fs::file_type::none) return error.value();
  if (type != fs::file_type::not_found) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

bool sync_path(const std::string& path) {
  const int file = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_CLOEXEC);
  // EINVAL: files of this kind have no sync.
  const bool done = file >= 0 && (fsync(file) == 0 || errno == EINVAL);
  if (file >= 0) close(file);
  return done;
}

bool sync_file_system([[maybe_unused]] const std::string& path) {
  bool done = false;
#ifdef CORVAN_HAS_SYNCFS
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  done = file >= 0 && syncfs(file) == 0;
  if (file >= 0) close(file);
#endif
  return done;
}

bool may_write_file(const std::string& file) {
  return faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) == 0;
}

bool may_write_folder(const std::string& folder) {
  return access(folder.c_str(), W_OK) == 0;
}

}  // namespace corvan_tool
