#include "base/pathname.h"

#include <cstddef>

namespace cvrtc {

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
  const std::size_t delimiter = pathname.rfind(kFolderDelimiter);
  const std::size_t name_at = delimiter == std::string::npos ? 0 : delimiter + 1;
  const std::string name = pathname.substr(name_at);
  SetFolder(pathname.substr(0, name_at));
  SetFilename(name);
}

void Pathname::SetFolder(const std::string& folder) {
  folder_ = folder;
  if (!folder_.empty() && folder_.back() != kFolderDelimiter) folder_ += kFolderDelimiter;
}

bool Pathname::SetFilename(const std::string& filename) {
  if (filename.find(kFolderDelimiter) != std::string::npos) return false;
  std::size_t dot = filename.rfind(kExtensionDelimiter);
  if (dot == std::string::npos || dot == 0 || filename == "..") dot = filename.size();
  const std::string extension = filename.substr(dot);
  basename_ = filename.substr(0, dot);
  extension_ = extension;
  return true;
}

bool Pathname::SetExtension(const std::string& extension) {
  if (extension.find(kFolderDelimiter) != std::string::npos) return false;
  const bool dot_missing = !extension.empty() && extension.front() != kExtensionDelimiter;
  extension_ = dot_missing ? kExtensionDelimiter + extension : extension;
  return true;
}

}  // namespace cvrtc
