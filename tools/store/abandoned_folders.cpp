#include "tools/store/abandoned_folders.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

bool is_temporary_name(std::string_view name) {
  constexpr std::string_view kPrefix = kTemporaryPrefix;
  constexpr std::size_t kRandom = 6;
  if (name.size() != kPrefix.size() + kRandom || name.substr(0, kPrefix.size()) != kPrefix) {
    return false;
  }
  const std::string_view random = name.substr(kPrefix.size());
  return std::all_of(random.begin(), random.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  });
}

// An owner that has created the folder but not yet locked it notices, and creates another one.
void remove_if_abandoned(const std::string& folder) {
  LockableFolder found(folder);
  if (!found.is_own() || found.lock() != Locking::kLocked) return;
  std::error_code ignored;
  remove_with_content(folder, ignored);
}

}  // namespace

FolderLock::FolderLock(const std::string& folder) : folder_(folder) {
  const Locking result = folder_.lock();
  is_held_ = result == Locking::kLocked || result == Locking::kNoLocks;
  if (result != Locking::kFailed) return;
  throw ToolError(folder + ": cannot be locked: " + std::strerror(folder_.error()));
}

void remove_abandoned_folders() {
  std::error_code error;
  const fs::path parent = temporary_folder(error);
  if (error) return;
  for (fs::directory_iterator one(parent, error), end; !error && one != end; one.increment(error)) {
    if (is_temporary_name(one->path().filename().u8string())) {
      remove_if_abandoned(path_text(one->path()));
    }
  }
}

}  // namespace corvan_tool
