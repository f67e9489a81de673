#include "tools/store/temporary_folder.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/store/abandoned_folders.h"
#include "tools/store/interrupt.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Creates and locks a folder, and returns its path. If another process removes the folder as
// abandoned before it is locked, creates another one.
std::string make_locked_folder(const std::string& pattern,
                               std::unique_ptr<const FolderLock>& lock) {
  for (;;) {
    std::string name = pattern;
    if (const int error = make_private_folder(name); error != 0) {
      throw ToolError(name + ": " + std::strerror(error) +
                      "; name a folder with room for a copy in TMPDIR");
    }
    try {
      lock = std::make_unique<FolderLock>(name);
    } catch (const ToolError&) {
      remove_file(name);
      throw;
    }
    if (lock->is_held()) return name + "/";
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::error_code error;
  const std::filesystem::path parent = temporary_folder(error);
  if (error) throw ToolError("the folder for temporary files (TMPDIR): " + error.message());
  const std::string pattern = path_text(parent / (std::string(kTemporaryPrefix) + "XXXXXX"));
  path_ = make_unfinished("", [&] { return make_locked_folder(pattern, lock_); });
}

TemporaryFolder::~TemporaryFolder() {
  remove_unfinished(path_);
}

}  // namespace corvan_tool
