#include "tools/platform/wide.h"

#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

namespace corvan_tool {

const unsigned long kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

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

int errno_of(SystemError error) {
  static constexpr std::array<std::pair<DWORD, int>, 31> kAll = {{
      {ERROR_SUCCESS, 0},
      {ERROR_FILE_NOT_FOUND, ENOENT},
      {ERROR_PATH_NOT_FOUND, ENOENT},
      {ERROR_INVALID_NAME, ENOENT},
      {ERROR_BAD_PATHNAME, ENOENT},
      {ERROR_BAD_NETPATH, ENOENT},
      {ERROR_BAD_NET_NAME, ENOENT},
      {ERROR_INVALID_DRIVE, ENOENT},
      {ERROR_FILE_EXISTS, EEXIST},
      {ERROR_ALREADY_EXISTS, EEXIST},
      {ERROR_ACCESS_DENIED, EACCES},
      {ERROR_SHARING_VIOLATION, EACCES},
      {ERROR_LOCK_VIOLATION, EACCES},
      {ERROR_USER_MAPPED_FILE, EACCES},
      {ERROR_DELETE_PENDING, EACCES},
      {ERROR_WRITE_PROTECT, EROFS},
      {ERROR_DISK_FULL, ENOSPC},
      {ERROR_HANDLE_DISK_FULL, ENOSPC},
      {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
      {ERROR_DIRECTORY, ENOTDIR},
      {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
      {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
      {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
      {ERROR_OUTOFMEMORY, ENOMEM},
      {ERROR_INVALID_HANDLE, EBADF},
      {ERROR_BROKEN_PIPE, EPIPE},
      {ERROR_NO_DATA, EPIPE},
      {ERROR_FILE_TOO_LARGE, EFBIG},
      {ERROR_NOT_SAME_DEVICE, EXDEV},
      {ERROR_CANT_RESOLVE_FILENAME, ELOOP},
      {ERROR_INVALID_PARAMETER, EINVAL},
  }};
  const auto* const found = std::find_if(kAll.begin(), kAll.end(),
                                         [error](const auto& one) { return one.first == error; });
  return found == kAll.end() ? EIO : found->second;
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
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (sid.empty() || !ConvertStringSecurityDescriptorToSecurityDescriptorW(
                         text.c_str(), SDDL_REVISION_1, &descriptor, nullptr)) {
    return;
  }
  attributes_.reset(new SECURITY_ATTRIBUTES{sizeof(SECURITY_ATTRIBUTES), descriptor, FALSE});
}

void PrivateAttributes::Release::operator()(void* attributes) const {
  auto* const own = static_cast<SECURITY_ATTRIBUTES*>(attributes);
  LocalFree(own->lpSecurityDescriptor);
  delete own;
}

void pause_shortly() {
  Sleep(20);
}

bool may_pass(SystemError error) {
  return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED ||
         error == ERROR_LOCK_VIOLATION || error == ERROR_DELETE_PENDING ||
         error == ERROR_DIR_NOT_EMPTY || error == ERROR_USER_MAPPED_FILE;
}

}  // namespace corvan_tool
