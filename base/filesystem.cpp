#include "base/filesystem.h"

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstddef>
#include <string>

namespace cvrtc {

namespace {

// The text as UTF-16, with its terminating zero; empty if the text is not UTF-8.
std::wstring to_wide(const std::string& text) {
  const auto convert = [&text](wchar_t* wide, int size) {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, wide, size);
  };
  const int size = convert(nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  convert(wide.data(), size);
  return wide;
}

}  // namespace

bool Filesystem::IsFile(const Pathname& path) {
  const DWORD no_access = 0;  // so that a file that another program has locked can be examined
  const DWORD share_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  // Follows links. Opens folders only with FILE_FLAG_BACKUP_SEMANTICS.
  const HANDLE file = CreateFileW(to_wide(path.pathname()).c_str(), no_access, share_all, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  BY_HANDLE_FILE_INFORMATION information = {};  // a volume has none, although it is on a disk
  const bool is_file = GetFileType(file) == FILE_TYPE_DISK &&
                       GetFileInformationByHandle(file, &information) != FALSE;
  CloseHandle(file);
  return is_file;
}

}  // namespace cvrtc

#else

#include <sys/stat.h>

namespace cvrtc {

bool Filesystem::IsFile(const Pathname& path) {
  struct stat status = {};
  return stat(path.pathname().c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace cvrtc

#endif
