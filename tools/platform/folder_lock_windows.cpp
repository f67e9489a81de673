#include "tools/platform/folder_lock.h"

#include <aclapi.h>
#include <sddl.h>

#include <cerrno>

#include "tools/platform/wide.h"

namespace corvan_tool {

namespace {

HANDLE handle_of(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

bool is_plain_folder(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION found = {};
  return GetFileInformationByHandle(file, &found) != 0 &&
         (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
         (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

}  // namespace

// Opening is locking. The handle has the right to add files and does not share this right, so that
// nobody else gets such a handle. Listing the folder, and adding and removing files in it by their
// paths, need no such handle.
LockableFolder::LockableFolder(const std::string& folder) : folder_(folder) {
  const HANDLE opened =
      CreateFileW(wide(folder).c_str(), FILE_ADD_FILE | FILE_READ_ATTRIBUTES | READ_CONTROL,
                  FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  const DWORD failure = GetLastError();
  if (opened == INVALID_HANDLE_VALUE) {
    // Another process that removes the folder has a handle to it, which shares nothing.
    error_ = failure == ERROR_SHARING_VIOLATION || failure == ERROR_DELETE_PENDING
                 ? ENOENT
                 : errno_of(failure);
  } else if (is_plain_folder(opened)) {
    handle_ = reinterpret_cast<std::intptr_t>(opened);
  } else {
    CloseHandle(opened);
    error_ = ENOTDIR;
  }
}

LockableFolder::~LockableFolder() {
  if (handle_ != -1) CloseHandle(handle_of(handle_));
}

bool LockableFolder::is_own() const {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (handle_ == -1 ||
      GetSecurityInfo(handle_of(handle_), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                      nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  wchar_t* text = nullptr;
  const bool is_own = ConvertSidToStringSidW(owner, &text) != 0 && user_sid() == text;
  LocalFree(text);
  LocalFree(descriptor);
  return is_own;
}

Locking LockableFolder::lock() {
  if (handle_ != -1) return Locking::kLocked;
  return error_ == ENOENT ? Locking::kGone : Locking::kFailed;
}

}  // namespace corvan_tool
