#include <filesystem>
#include <system_error>

#include "tests/addons/statement_cache/open_files.h"

namespace corvan_test {

std::vector<std::string> open_files_in(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(each.path(), gone).string();
    if (target.rfind(folder, 0) == 0) files.push_back(target);
  }
  return files;
}

}  // namespace corvan_test
