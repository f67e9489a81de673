#include "base/pathname.h"

#include <cstddef>
#include <string_view>

namespace cvrtc {

namespace {

#ifdef _WIN32
constexpr std::string_view kDelimiters = "/\\";
#else
constexpr std::string_view kDelimiters = "/";
#endif

bool has_delimiter(const std::string& text) {
  return text.find_first_of(kDelimiters) != std::string::npos;
}

}  // namespace

Pathname::Pathname(const std::string& folder, const std::string& filename) {
  SetFolder(folder);
  SetFilename(filename);
}

void Pathname::clear() {
  folder_.clear();
  basename_.clear();
  extension_.clear();
}

void Pathname::SetPathname(const std::string& pathname) {
  const std::size_t delimiter = pathname.find_last_of(kDelimiters);
  const std::size_t name_at = delimiter == std::string::npos ? 0 : delimiter + 1;
  const std::string name = pathname.substr(name_at);
  SetFolder(pathname.substr(0, name_at));
  SetFilename(name);
}

void Pathname::SetFolder(const std::string& folder) {
  folder_ = folder;
  if (folder_.empty() || kDelimiters.find(folder_.back()) != std::string_view::npos) return;
  folder_ += kFolderDelimiter;
}

bool Pathname::SetFilename(const std::string& filename) {
  if (has_delimiter(filename)) return false;
  std::size_t dot = filename.rfind(kExtensionDelimiter);
  if (dot == std::string::npos || dot == 0 || filename == "..") dot = filename.size();
  const std::string extension = filename.substr(dot);
  basename_ = filename.substr(0, dot);
  extension_ = extension;
  return true;
}

bool Pathname::SetExtension(const std::string& extension) {
  if (has_delimiter(extension)) return false;
  const bool dot_missing = !extension.empty() && extension.front() != kExtensionDelimiter;
  extension_ = dot_missing ? kExtensionDelimiter + extension : extension;
  return true;
}

}  // namespace cvrtc
