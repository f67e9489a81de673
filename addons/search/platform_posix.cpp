#include "addons/search/platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "addons/search/file_identity.h"

namespace Corvan::search {

FileIdentity identity_of(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return {};
  return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

bool is_writable(const std::string& file) {
  return ::access(file.c_str(), W_OK) == 0;
}

bool delete_file(const std::string& file) {
  return unlink(file.c_str()) == 0 || errno == ENOENT;
}

void create_like(const std::string& file, const std::string& model) {
  struct stat status {};
  const mode_t mode = stat(model.c_str(), &status) == 0 ? status.st_mode & 0777 : 0600;
  const int descriptor = ::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode);
  if (descriptor >= 0) ::close(descriptor);
}

void repair_permissions(const std::string& file, const std::string& model) {
  struct stat status {};
  if (!is_writable(model) || stat(model.c_str(), &status) != 0) return;
  if (!is_writable(file)) ::chmod(file.c_str(), status.st_mode & 0777);
}

std::size_t find_bytes(std::string_view text, std::string_view what) {
  const void* const found = memmem(text.data(), text.size(), what.data(), what.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

}  // namespace Corvan::search
