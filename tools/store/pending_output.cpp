#include "tools/store/pending_output.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/platform/file_system.h"
#include "tools/store/interrupt.h"
#include "tools/store/output_place.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

// The pattern for the temporary name beside a place. Long names are truncated at a UTF-8 character
// boundary.
std::string temporary_name(const fs::path& place) {
  constexpr const char* kMark = ".unfinished-XXXXXX";
  const std::size_t longest = kLongestName - std::char_traits<char>::length(kMark);
  std::string name = place.filename().u8string();
  if (name.size() > longest) {
    std::size_t size = longest;
    while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
    name.resize(size);
  }
  return path_text(place.parent_path() / fs::u8path(name + kMark));
}

// Creates an empty file or folder for its owner alone, and returns its path.
std::string make_temporary(const std::string& place, bool is_folder) {
  std::string path = temporary_name(fs::u8path(place));
  const int error = is_folder ? make_private_folder(path) : make_private_file(path);
  if (error != 0) throw ToolError(place + ": cannot be created: " + std::strerror(error));
  return path;
}

// Throws ToolError if that cannot be determined.
bool is_there(const std::string& place) {
  std::error_code error;
  const fs::file_type type = fs::symlink_status(fs::u8path(place), error).type();
  if (type == fs::file_type::none) throw ToolError(place + ": " + error.message());
  return type != fs::file_type::not_found;
}

void require_folder(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(fs::u8path(path), error);
  if (fs::is_directory(status)) return;
  if (!fs::status_known(status)) throw ToolError(path + ": " + error.message());
  throw ToolError(path + (fs::exists(status) ? ": not a folder; name one"
                                             : ": no such folder; create it first"));
}

void require_sync(const std::string& path) {
  if (!sync_path(path))
    throw ToolError(kept_name(path) + ": " + std::strerror(errno) + "; nothing was kept");
}

// Makes a file, or a folder with its content, durable.
void require_sync_of_all(const std::string& path) {
  constexpr std::size_t kFew = 16;
  if (fs::is_directory(fs::u8path(path))) {
    const std::vector<std::string> all = content_of(path);
    if (all.size() > kFew && sync_file_system(path)) return;
    for (const std::string& one : all) require_sync(one);
  }
  require_sync(path);
}

// Makes the name of a file or folder durable.
void require_sync_of_name(const std::string& place) {
  if (sync_path(fs::u8path(place).parent_path().u8string())) return;
  const int error = errno;
  // The folder may be writable but not readable.
  if (error == EACCES && sync_file_system(place)) return;
  throw ToolError(place + ": is complete, but its folder cannot be synced: " +
                  std::strerror(error) + "; it may be missing after a power loss");
}

}  // namespace

PendingOutput::PendingOutput(std::string place, bool is_folder) : place_(std::move(place)) {
  while (place_.size() > 1 && is_path_delimiter(place_.back())) place_.pop_back();
  if (is_there(place_)) throw ToolError(place_ + ": exists already; name a new place");
  const std::string parent = fs::u8path(place_).parent_path().u8string();
  if (!parent.empty()) require_folder(parent);
  require_no_store_file(place_);
  path_ = make_unfinished(place_, [&] { return make_temporary(place_, is_folder); });
}

PendingOutput::~PendingOutput() {
  remove_unfinished(path_);
}

void PendingOutput::keep() {
  require_sync_of_all(path_);
  keep_unfinished(path_, [this] {
    const int error = rename_to_free(path_, place_);
    if (error == EEXIST) {
      throw ToolError(place_ + ": was created by another process meanwhile; nothing was kept");
    }
    if (error != 0) throw ToolError(place_ + ": " + std::strerror(error) + "; nothing was kept");
  });
  require_sync_of_name(place_);
}

}  // namespace corvan_tool
