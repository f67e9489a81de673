#include "tools/store/output_place.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/store/file_names.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 4> kStoreEnds = {"", kLogSuffix, kIndexSuffix, kJournalSuffix};

// A log alone is enough: the store's file may have been lost.
bool is_store_folder(const fs::path& folder) {
  return std::any_of(kStoreEnds.begin(), kStoreEnds.end(), [&folder](const char* end) {
    std::error_code ignored;
    const fs::path file = folder / (std::string(kStoreName) + end);
    return fs::exists(fs::symlink_status(file, ignored)) && !fs::is_directory(file, ignored);
  });
}

bool is_own_name(const std::string& name) {
  return name == kStoreName || name == kSearchIndexName;
}

bool is_store_file(const fs::path& folder, const std::string& name) {
  return std::any_of(kStoreEnds.begin(), kStoreEnds.end(), [&](const std::string& end) {
    if (name.size() <= end.size()) return false;
    const std::size_t size = name.size() - end.size();
    if (name.compare(size, end.size(), end) != 0) return false;
    const std::string of = name.substr(0, size);
    if (end.empty()) return is_own_name(of) && is_store_folder(folder);
    return is_own_name(of) || is_plain_database((folder / fs::u8path(of)).u8string());
  });
}

}  // namespace

void require_no_store_file(const std::string& place) {
  const fs::path path = fs::u8path(place);
  std::error_code ignored;
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  const fs::path folder = fs::weakly_canonical(parent, ignored);
  if (!is_store_file(folder, comparable_name(path.filename().u8string()))) return;
  throw ToolError(place + ": the name of a store's own file; name another place");
}

}  // namespace corvan_tool
