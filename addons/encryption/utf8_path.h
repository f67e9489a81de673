// Paths as UTF-8 texts.

#ifndef ADDONS_ENCRYPTION_UTF8_PATH_H_
#define ADDONS_ENCRYPTION_UTF8_PATH_H_

#include <filesystem>
#include <string>
#include <system_error>

namespace Corvan::encryption {

// Empty if the text is not UTF-8, on a system whose paths are not bytes.
inline std::filesystem::path to_path(const std::string& text) {
  try {
    return std::filesystem::u8path(text);
  } catch (const std::system_error&) {
    return {};
  }
}

// Empty if the path cannot be written as UTF-8.
inline std::string to_utf8(const std::filesystem::path& path) {
  try {
    return path.u8string();
  } catch (const std::system_error&) {
    return {};
  }
}

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_UTF8_PATH_H_
