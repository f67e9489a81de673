#include "tools/platform/wide.h"

#include <sddl.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <vector>

namespace corvan_tool {

std::wstring wide(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring result(static_cast<std::size_t>(needed), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), needed);
  return result;
}

std::string utf8(std::wstring_view text) {
  const int size = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), needed, nullptr, nullptr);
  return result;
}

int errno_of(DWORD error) {
  switch (error) {
    case ERROR_SUCCESS:
      return 0;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_INVALID_DRIVE:
      return ENOENT;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return EEXIST;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:
    case ERROR_DELETE_PENDING:
      return EACCES;
    case ERROR_WRITE_PROTECT:
      return EROFS;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return ENOSPC;
    case ERROR_DIR_NOT_EMPTY:
      return ENOTEMPTY;
    case ERROR_DIRECTORY:
      return ENOTDIR;
    case ERROR_FILENAME_EXCED_RANGE:
      return ENAMETOOLONG;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return ENOMEM;
    case ERROR_INVALID_HANDLE:
      return EBADF;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
      return EPIPE;
    case ERROR_FILE_TOO_LARGE:
      return EFBIG;
    case ERROR_INVALID_PARAMETER:
      return EINVAL;
    default:
      return EIO;
  }
}

void set_errno() {
  errno = errno_of(GetLastError());
}

std::wstring user_sid() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  alignas(TOKEN_USER) std::array<char, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user = {};
  DWORD size = 0;
  wchar_t* text = nullptr;
  const bool is_read = GetTokenInformation(token, TokenUser, user.data(),
                                           static_cast<DWORD>(user.size()), &size) != 0 &&
                       ConvertSidToStringSidW(
                           reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text) != 0;
  CloseHandle(token);
  const std::wstring sid = is_read ? text : L"";
  LocalFree(text);
  return sid;
}

PrivateAttributes::PrivateAttributes() {
  const std::wstring sid = user_sid();
  const std::wstring text = L"O:" + sid + L"D:P(A;OICI;FA;;;" + sid + L")";
  if (sid.empty() || !ConvertStringSecurityDescriptorToSecurityDescriptorW(
                         text.c_str(), SDDL_REVISION_1, &descriptor_, nullptr)) {
    descriptor_ = nullptr;
  }
  attributes_.nLength = sizeof attributes_;
  attributes_.lpSecurityDescriptor = descriptor_;
}

PrivateAttributes::~PrivateAttributes() {
  LocalFree(descriptor_);
}

bool may_pass(DWORD error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED ||
         error == ERROR_LOCK_VIOLATION || error == ERROR_DELETE_PENDING ||
         error == ERROR_DIR_NOT_EMPTY || error == ERROR_USER_MAPPED_FILE;
}

}  // namespace corvan_tool
