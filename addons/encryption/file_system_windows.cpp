#include "addons/encryption/file_system.h"

#include <windows.h>

// After windows.h, whose types it needs.
#include <aclapi.h>

#include "addons/encryption/database.h"
#include "addons/encryption/store_encryption.h"

namespace Corvan::encryption {

namespace {

ConversionResult result_of(DWORD error) {
  switch (error) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return ConversionResult::kNoSpace;
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
      return ConversionResult::kInUse;
    default:
      return ConversionResult::kFailed;
  }
}

[[noreturn]] void fail(const char* what, DWORD error = GetLastError()) {
  throw ConversionFailure(result_of(error),
                          std::string(what) + ": Windows error " + std::to_string(error));
}

std::wstring wide(const std::string& text) {
  const auto size = static_cast<int>(text.size());
  const int count =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (count == 0) fail("path");
  std::wstring result(static_cast<std::size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, result.data(), count);
  return result;
}

// A file that stays open until the end of the scope.
class File {
 public:
  File(const std::string& file, DWORD access, DWORD sharing, DWORD creation)
      : handle_(CreateFileW(wide(file).c_str(), access, sharing, nullptr, creation,
                            FILE_ATTRIBUTE_NORMAL, nullptr)) {
    if (handle_ == INVALID_HANDLE_VALUE) fail("CreateFile");
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { CloseHandle(handle_); }

  HANDLE get() const { return handle_; }

 private:
  const HANDLE handle_;
};

constexpr DWORD kSharedWithAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Who may use a file.
class AccessList {
 public:
  explicit AccessList(const std::string& file) {
    const DWORD error =
        GetNamedSecurityInfoW(wide(file).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, &list_, nullptr, &descriptor_);
    if (error != ERROR_SUCCESS) fail("GetNamedSecurityInfo", error);
  }
  AccessList(const AccessList&) = delete;
  AccessList& operator=(const AccessList&) = delete;
  ~AccessList() { LocalFree(descriptor_); }

  void give_to(const File& file) const {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (GetSecurityDescriptorControl(descriptor_, &control, &revision) == 0) {
      fail("GetSecurityDescriptorControl");
    }
    const bool is_protected = (control & SE_DACL_PROTECTED) != 0;  // not inherited from the folder
    const SECURITY_INFORMATION protection =
        is_protected ? PROTECTED_DACL_SECURITY_INFORMATION : UNPROTECTED_DACL_SECURITY_INFORMATION;
    const DWORD error =
        SetSecurityInfo(file.get(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | protection, nullptr,
                        nullptr, list_, nullptr);
    if (error != ERROR_SUCCESS) fail("SetSecurityInfo", error);
  }

 private:
  PACL list_ = nullptr;
  PSECURITY_DESCRIPTOR descriptor_ = nullptr;
};

bool is_held(DWORD error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
}

bool is_read_only(const std::string& file) {
  const DWORD attributes = GetFileAttributesW(wide(file).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
}

}  // namespace

const bool kReplacesOpenFiles = false;

bool has_other_names(const std::string& file) {
  const File opened(file, FILE_READ_ATTRIBUTES, kSharedWithAll, OPEN_EXISTING);
  BY_HANDLE_FILE_INFORMATION status{};
  if (GetFileInformationByHandle(opened.get(), &status) == 0) fail("GetFileInformationByHandle");
  return status.nNumberOfLinks > 1;
}

// A virus scanner can hold a new file for a moment, so this tries for about a second.
void remove_file(const std::string& file) {
  constexpr int kAttempts = 50;
  constexpr DWORD kPause = 20;  // milliseconds
  DWORD error = ERROR_SHARING_VIOLATION;
  for (int i = 0; i < kAttempts && is_held(error); ++i) {
    if (i > 0) Sleep(kPause);
    if (DeleteFileW(wide(file).c_str()) != 0) return;
    error = GetLastError();
  }
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) fail("DeleteFile", error);
}

std::uintmax_t free_space(const std::string& file) {
  const std::string folder = file.substr(0, file.find_last_of("/\\") + 1);
  ULARGE_INTEGER free{};
  if (GetDiskFreeSpaceExW(wide(folder).c_str(), &free, nullptr, nullptr) == 0) {
    fail("GetDiskFreeSpaceEx");
  }
  return free.QuadPart;
}

void create_like(const std::string& file, const std::string& model) {
  const AccessList access(model);
  const File made(file, GENERIC_WRITE | READ_CONTROL | WRITE_DAC, 0, CREATE_NEW);
  access.give_to(made);
}

void sync_file(const std::string& file) {
  const File made(file, GENERIC_WRITE, kSharedWithAll, OPEN_EXISTING);
  if (FlushFileBuffers(made.get()) == 0) fail("FlushFileBuffers");
}

// Does not try again: another process could use the old file meanwhile.
void rename_over(const std::string& from, const std::string& to) {
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (MoveFileExW(wide(from).c_str(), wide(to).c_str(), kFlags) != 0) return;
  // If another program has `to` open, Windows fails with ERROR_ACCESS_DENIED.
  const DWORD error = GetLastError();
  const bool is_open = error == ERROR_ACCESS_DENIED && !is_read_only(to);
  fail("MoveFileEx", is_open ? DWORD{ERROR_SHARING_VIOLATION} : error);
}

std::string sync_folder(const std::string& /*folder*/) {
  return {};
}

}  // namespace Corvan::encryption
