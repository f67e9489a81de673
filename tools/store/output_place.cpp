#include "tools/store/output_place.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "tools/store/file_names.h"
#include "tools/store/regular_file.h"
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

bool is_database(const fs::path& file) {
  constexpr std::string_view kBegin = "SQLite format 3";
  std::error_code ignored;
  if (!fs::is_regular_file(file, ignored)) return false;
  try {
    std::string bytes;
    return ReadOnlyFile(file.string(), false).read(0, kBegin.size(), bytes) && bytes == kBegin;
  } catch (const ToolError&) {
    return false;  // it cannot be opened
  }
}

bool is_store_file(const fs::path& folder, const std::string& name) {
  return std::any_of(kStoreEnds.begin(), kStoreEnds.end(), [&](const std::string& end) {
    if (name.size() <= end.size()) return false;
    const std::size_t size = name.size() - end.size();
    if (name.compare(size, end.size(), end) != 0) return false;
    const std::string of = name.substr(0, size);
    if (end.empty()) return of == kStoreName && is_store_folder(folder);
    return of == kStoreName || is_database(folder / of);
  });
}

}  // namespace

void require_no_store_file(const std::string& place) {
  const fs::path path = place;
  std::error_code ignored;
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  const fs::path folder = fs::weakly_canonical(parent, ignored);
  if (!is_store_file(folder, path.filename().string())) return;
  throw ToolError(place + ": the name of a store's own file; name another place");
}

}  // namespace corvan_tool
