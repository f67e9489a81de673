#include "base/pathname.h"

#include <cstddef>

namespace cvrtc {

namespace {

#ifdef _WIN32
bool is_delimiter(char character) {
  return character == '/' || character == '\\';
}
#else
bool is_delimiter(char character) {
  return character == '/';
}
#endif

// The length of the text up to its last delimiter, with it; 0 if there is none.
std::size_t folder_length(const std::string& text) {
  std::size_t length = text.size();
  while (length > 0 && !is_delimiter(text[length - 1])) --length;
  return length;
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
  const std::size_t name_at = folder_length(pathname);
  const std::string name = pathname.substr(name_at);
  SetFolder(pathname.substr(0, name_at));
  SetFilename(name);
}

void Pathname::SetFolder(const std::string& folder) {
  folder_ = folder;
  if (!folder_.empty() && !is_delimiter(folder_.back())) folder_ += kFolderDelimiter;
}

bool Pathname::SetFilename(const std::string& filename) {
  if (folder_length(filename) > 0) return false;
  std::size_t dot = filename.rfind(kExtensionDelimiter);
  if (dot == std::string::npos || dot == 0 || filename == "..") dot = filename.size();
  const std::string extension = filename.substr(dot);
  basename_ = filename.substr(0, dot);
  extension_ = extension;
  return true;
}

bool Pathname::SetExtension(const std::string& extension) {
  if (folder_length(extension) > 0) return false;
  const bool dot_missing = !extension.empty() && extension.front() != kExtensionDelimiter;
  extension_ = dot_missing ? kExtensionDelimiter + extension : extension;
  return true;
}

}  // namespace cvrtc
