#include "addons/encryption/store_file.h"

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "addons/encryption/database.h"
#include "addons/encryption/file_system.h"
#include "addons/encryption/old_contents.h"
#include "addons/encryption/store_encryption.h"
#include "addons/encryption/utf8_path.h"

namespace Corvan::encryption {

namespace {

namespace fs = std::filesystem;

// Copies of the same rows differ in size by the bytes that a cipher reserves and by how full the
// pages are.
constexpr std::uintmax_t kMargin = std::uintmax_t{1} << 20U;

std::uintmax_t size_of(const std::string& path) {
  std::error_code missing;
  const std::uintmax_t size = fs::file_size(to_path(path), missing);
  return missing ? 0 : size;
}

// Empty if the path does not exist.
std::string resolved(const std::string& path) {
  std::error_code missing;
  return to_utf8(fs::canonical(to_path(path), missing));
}

}  // namespace

StoreFile::StoreFile(const cvrtc::Pathname& folder) : path_(resolved(folder.folder() + "corvan")) {
  std::error_code missing;
  if (!fs::is_regular_file(to_path(path_), missing) || size_of(path_) == 0) {
    throw ConversionFailure(ConversionResult::kNoStore);
  }
  if (has_other_names(path_)) {
    throw ConversionFailure(ConversionResult::kFailed, "hard links give the file other names");
  }
}

void StoreFile::remove_copy() const {
  OldContents contents;  // a killed process can have left plain text
  contents.add(copy());
  for (const char* const suffix : {"", "-journal", "-wal", "-shm"}) remove_file(copy() + suffix);
  contents.overwrite();
}

void StoreFile::require_space() const {
  const std::uintmax_t size = size_of(path_) + size_of(log());
  if (free_space(path_) < size + size / 8 + kMargin)
    throw ConversionFailure(ConversionResult::kNoSpace);
}

void StoreFile::create_copy() const {
  create_like(copy(), path_);
}

void StoreFile::require_no_copy_log() const {
  if (size_of(copy() + "-wal") == 0) return;
  throw ConversionFailure(ConversionResult::kFailed, "the copy's log was not written back");
}

void StoreFile::sync_copy() const {
  sync_file(copy());
  const std::string failure = sync_folder();
  if (!failure.empty()) throw ConversionFailure(ConversionResult::kFailed, failure);
}

void StoreFile::replace() const {
  rename_over(copy(), path_);
}

std::string StoreFile::sync_folder() const {
  return encryption::sync_folder(to_utf8(to_path(path_).parent_path()));
}

}  // namespace Corvan::encryption
