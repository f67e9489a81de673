#include "addons/search/platform.h"

#include <windows.h>

#include <cstdint>

#include "addons/search/file_identity.h"

namespace Corvan::search {

namespace {

// Empty if the text is not UTF-8.
std::wstring wide(const std::string& text) {
  const auto size = static_cast<int>(text.size());
  const int count =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, result.data(), count);
  return result;
}

// An existing file or folder, which others may use at the same time.
class OpenFile {
 public:
  OpenFile(const std::string& file, DWORD access)
      : handle_(CreateFileW(wide(file).c_str(), access,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (is_open()) CloseHandle(handle_);
  }

  bool is_open() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

 private:
  const HANDLE handle_;
};

}  // namespace

FileIdentity identity_of(const std::string& file) {
  const OpenFile opened(file, FILE_READ_ATTRIBUTES);
  BY_HANDLE_FILE_INFORMATION status{};
  if (!opened.is_open() || GetFileInformationByHandle(opened.get(), &status) == 0) return {};
  const uint64_t number = uint64_t{status.nFileIndexHigh} << 32U | status.nFileIndexLow;
  return {status.dwVolumeSerialNumber, number};
}

bool is_writable(const std::string& file) {
  return OpenFile(file, GENERIC_WRITE).is_open();
}

bool delete_file(const std::string& file) {
  if (DeleteFileW(wide(file).c_str()) != 0) return true;
  const DWORD error = GetLastError();
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

void create_like(const std::string& /*file*/, const std::string& /*model*/) {}

void repair_permissions(const std::string& /*file*/, const std::string& /*model*/) {}

std::size_t find_bytes(std::string_view text, std::string_view what) {
  return text.find(what);
}

}  // namespace Corvan::search
