#include "addons/encryption/file_system.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "addons/encryption/database.h"
#include "addons/encryption/descriptor.h"
#include "addons/encryption/store_encryption.h"

namespace Corvan::encryption {

namespace {

[[noreturn]] void fail(const char* what) {
  const std::error_code code(errno, std::generic_category());
  const bool full = code == std::errc::no_space_on_device;
  throw ConversionFailure(full ? ConversionResult::kNoSpace : ConversionResult::kFailed,
                          std::string(what) + ": " + code.message());
}

struct stat status_of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) fail("stat");
  return status;
}

}  // namespace

const bool kReplacesOpenFiles = true;

bool has_other_names(const std::string& file) {
  return status_of(file).st_nlink > 1;
}

void remove_file(const std::string& file) {
  if (unlink(file.c_str()) != 0 && errno != ENOENT) fail("unlink");
}

std::uintmax_t free_space(const std::string& file) {
  struct statvfs system {};
  if (statvfs(file.c_str(), &system) != 0) fail("statvfs");
  return std::uintmax_t{system.f_bavail} * system.f_frsize;
}

void create_like(const std::string& file, const std::string& model) {
  const struct stat old = status_of(model);
  const Descriptor made(
      open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!made.is_open()) fail("open");
  // Only root can give files away. Another group must not get the rights of the old one.
  const bool is_given = fchown(made.get(), old.st_uid, old.st_gid) == 0;
  const mode_t rights = is_given ? S_IRWXU | S_IRWXG | S_IRWXO : S_IRWXU;
  if (fchmod(made.get(), old.st_mode & rights) != 0) fail("fchmod");
}

void sync_file(const std::string& file) {
  const Descriptor made(open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (!made.is_open() || !made.sync()) fail("sync of the copy");
}

void rename_over(const std::string& from, const std::string& to) {
  if (rename(from.c_str(), to.c_str()) != 0) fail("rename");
}

std::string sync_folder(const std::string& folder) {
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // EINVAL: the file system does not sync folders apart from files.
  if (opened.is_open() && (opened.sync() || errno == EINVAL)) return {};
  return "sync of the folder: " + std::generic_category().message(errno);
}

}  // namespace Corvan::encryption
