#include "addons/encryption/store_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "addons/encryption/database.h"
#include "addons/encryption/descriptor.h"
#include "addons/encryption/old_contents.h"
#include "addons/encryption/store_encryption.h"

namespace Corvan::encryption {

namespace {

namespace fs = std::filesystem;

// Copies of the same rows differ in size by the bytes that a cipher reserves and by how full the
// pages are.
constexpr std::uintmax_t kMargin = std::uintmax_t{1} << 20U;

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

std::uintmax_t size_of(const std::string& path) {
  std::error_code missing;
  const std::uintmax_t size = fs::file_size(path, missing);
  return missing ? 0 : size;
}

// Empty if the path does not exist.
std::string resolved(const std::string& path) {
  std::error_code missing;
  return fs::canonical(path, missing).string();
}

}  // namespace

StoreFile::StoreFile(const cvrtc::Pathname& folder) : path_(resolved(folder.folder() + "corvan")) {
  std::error_code missing;
  if (!fs::is_regular_file(path_, missing) || size_of(path_) == 0) {
    throw ConversionFailure(ConversionResult::kNoStore);
  }
  if (status_of(path_).st_nlink > 1) {
    throw ConversionFailure(ConversionResult::kFailed, "hard links give the file other names");
  }
}

void StoreFile::remove_copy() const {
  OldContents contents;  // a killed process can have left plain text
  contents.add(copy());
  for (const char* const suffix : {"", "-journal", "-wal", "-shm"}) {
    if (unlink((copy() + suffix).c_str()) != 0 && errno != ENOENT) fail("unlink");
  }
  contents.overwrite();
}

void StoreFile::require_space() const {
  struct statvfs system {};
  if (statvfs(path_.c_str(), &system) != 0) fail("statvfs");
  const std::uintmax_t size = size_of(path_) + size_of(log());
  const std::uintmax_t free = std::uintmax_t{system.f_bavail} * system.f_frsize;
  if (free < size + size / 8 + kMargin) throw ConversionFailure(ConversionResult::kNoSpace);
}

void StoreFile::create_copy() const {
  const struct stat old = status_of(path_);
  const Descriptor made(
      open(copy().c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!made.is_open()) fail("open");
  // Only root can give files away. Another group must not get the rights of the old one.
  const bool is_given = fchown(made.get(), old.st_uid, old.st_gid) == 0;
  const mode_t rights = is_given ? S_IRWXU | S_IRWXG | S_IRWXO : S_IRWXU;
  if (fchmod(made.get(), old.st_mode & rights) != 0) fail("fchmod");
}

void StoreFile::require_no_copy_log() const {
  if (size_of(copy() + "-wal") == 0) return;
  throw ConversionFailure(ConversionResult::kFailed, "the copy's log was not written back");
}

void StoreFile::replace() const {
  const Descriptor made(open(copy().c_str(), O_RDWR | O_CLOEXEC));
  if (!made.is_open() || !made.sync()) fail("sync of the copy");
  const std::string failure = sync_folder();
  if (!failure.empty()) throw ConversionFailure(ConversionResult::kFailed, failure);
  if (rename(copy().c_str(), path_.c_str()) != 0) fail("rename");
}

std::string StoreFile::sync_folder() const {
  const Descriptor opened(open(folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // EINVAL: the file system does not sync folders apart from files.
  if (opened.is_open() && (opened.sync() || errno == EINVAL)) return {};
  return "sync of the folder: " + std::generic_category().message(errno);
}

std::string StoreFile::folder() const {
  return fs::path(path_).parent_path().string();
}

}  // namespace Corvan::encryption
