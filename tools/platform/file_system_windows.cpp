#include "tools/platform/file_system.h"

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <string_view>

#include "tools/platform/wide.h"

namespace corvan_tool {

namespace fs = std::filesystem;

namespace {

// Replaces the last six characters.
void fill_in(std::string& path) {
  constexpr std::string_view kCharacters =
      "abcdefghijklmnopqrstuvwxyz0123456789";  // names differ in more than letter case
  std::random_device random;
  for (std::size_t i = path.size() - 6; i < path.size(); ++i) {
    path[i] = kCharacters[random() % kCharacters.size()];
  }
}

// Calls `create`, which returns an error of the system, with new names until one is free.
template <typename Create>
int make_private(std::string& path, const Create& create) {
  constexpr int kAttempts = 100;
  const PrivateAttributes attributes;
  if (attributes.get() == nullptr) return EACCES;
  DWORD error = ERROR_ALREADY_EXISTS;
  for (int i = 0; i < kAttempts && errno_of(error) == EEXIST; ++i) {
    fill_in(path);
    error = create(wide(path), static_cast<SECURITY_ATTRIBUTES*>(attributes.get()));
  }
  return errno_of(error);
}

DWORD create_private_file(const std::wstring& path, SECURITY_ATTRIBUTES* attributes) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, kShared, attributes, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return GetLastError();
  CloseHandle(file);
  return 0;
}

DWORD remove_once(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError();
  const bool is_folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const BOOL done = is_folder ? RemoveDirectoryW(path.c_str()) : DeleteFileW(path.c_str());
  return done ? 0 : GetLastError();
}

bool is_folder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A link to a folder is removed without what it leads to.
bool is_real_folder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return is_folder(path) && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

// Unlike std::filesystem, also lists folders with paths of more than 260 characters.
std::vector<std::string> names_in(const std::string& folder, std::error_code& error) {
  std::vector<std::string> names;
  WIN32_FIND_DATAW found = {};
  const HANDLE search = FindFirstFileW(wide(folder + "/*").c_str(), &found);
  error.assign(search == INVALID_HANDLE_VALUE ? errno_of(GetLastError()) : 0,
               std::generic_category());
  if (error) return names;
  do {
    const std::string name = utf8(found.cFileName);
    if (name != "." && name != "..") names.push_back(name);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return names;
}

// Whether the file or folder can be opened with this right. Sets errno if not.
bool may_open(const std::string& path, DWORD access) {
  const HANDLE file = CreateFileW(wide(path).c_str(), access, kShared, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    CloseHandle(file);
    return true;
  }
  const DWORD error = GetLastError();
  errno = errno_of(error);
  return error == ERROR_SHARING_VIOLATION;  // says nothing about permissions
}

}  // namespace

const std::size_t kLongestName = 255;  // in UTF-16, which is never longer than UTF-8

bool is_path_delimiter(char character) {
  return character == '/' || character == '\\';
}

std::string comparable_name(std::string name) {
  name.resize(std::min(name.find(':'), name.size()));
  name.resize(name.find_last_not_of(". ") + 1);
  std::transform(name.begin(), name.end(), name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return name;
}

std::string path_text(const fs::path& path) {
  const std::string text = path.u8string();
  const bool is_on_server =
      text.size() > 1 && is_path_delimiter(text[0]) && is_path_delimiter(text[1]);
  return is_on_server ? text : path.generic_u8string();
}

fs::path temporary_folder(std::error_code& error) {
  std::wstring path(MAX_PATH + 2, L'\0');
  path.resize(GetTempPathW(static_cast<DWORD>(path.size()), path.data()));
  error.clear();
  if (!is_folder(path)) error = std::make_error_code(std::errc::not_a_directory);
  return path;
}

int make_private_file(std::string& path) {
  return make_private(path, create_private_file);
}

int make_private_folder(std::string& path) {
  return make_private(path, [](const std::wstring& folder, SECURITY_ATTRIBUTES* attributes) {
    return CreateDirectoryW(folder.c_str(), attributes) ? 0 : GetLastError();
  });
}

std::vector<std::string> content_of(const std::string& folder) {
  std::vector<std::string> paths;
  std::error_code error;
  for (const std::string& name : names_in(folder, error)) {
    paths.push_back(folder + "/" + name);
    if (!is_real_folder(wide(paths.back()))) continue;
    const std::vector<std::string> below = content_of(paths.back());
    paths.insert(paths.end(), below.begin(), below.end());
  }
  if (error) throw fs::filesystem_error("cannot list", fs::u8path(folder), error);
  return paths;
}

int remove_file(const std::string& path) {
  const std::wstring name = wide(path);
  return errno_of(try_for_a_second([&name] { return remove_once(name); }));
}

void remove_with_content(const std::string& path, std::error_code& error) {
  if (is_real_folder(wide(path))) {
    std::error_code ignored;  // the folder then cannot be removed either
    for (const std::string& name : names_in(path, ignored)) {
      remove_with_content(path + "/" + name, ignored);
    }
  }
  const int failure = remove_file(path);
  error.assign(failure == ENOENT ? 0 : failure, std::generic_category());
}

int rename_to_free(const std::string& from, const std::string& to) {
  const std::wstring old_name = wide(from);
  const std::wstring new_name = wide(to);
  return errno_of(try_for_a_second([&]() -> DWORD {
    if (MoveFileExW(old_name.c_str(), new_name.c_str(), MOVEFILE_WRITE_THROUGH)) return 0;
    const DWORD error = GetLastError();
    const bool is_there = GetFileAttributesW(new_name.c_str()) != INVALID_FILE_ATTRIBUTES;
    return is_there ? ERROR_ALREADY_EXISTS : error;
  }));
}

bool sync_path(const std::string& path) {
  const std::wstring name = wide(path);
  if (path.empty() || is_folder(name)) return true;
  HANDLE file = INVALID_HANDLE_VALUE;
  const DWORD error = try_for_a_second([&]() -> DWORD {
    file = CreateFileW(name.c_str(), GENERIC_WRITE, kShared, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
    return file == INVALID_HANDLE_VALUE ? GetLastError() : 0;
  });
  const bool done = error == 0 && FlushFileBuffers(file) != 0;
  if (!done) errno = errno_of(error != 0 ? error : GetLastError());
  if (error == 0) CloseHandle(file);
  return done;
}

bool sync_file_system(const std::string& /*path*/) {
  return false;
}

bool may_write_file(const std::string& file) {
  return may_open(file, FILE_WRITE_DATA);
}

bool may_write_folder(const std::string& folder) {
  return may_open(folder, FILE_ADD_FILE);
}

}  // namespace corvan_tool
