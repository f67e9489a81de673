#include "tools/platform/files.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <winioctl.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "tools/platform/wide.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;

HANDLE handle_of(int file) {
  return reinterpret_cast<HANDLE>(_get_osfhandle(file));
}

OVERLAPPED position(std::uint64_t at) {
  OVERLAPPED place = {};
  place.Offset = static_cast<DWORD>(at & 0xFFFFFFFFU);
  place.OffsetHigh = static_cast<DWORD>(at >> 32U);
  return place;
}

DWORD at_once(std::size_t size) {
  return static_cast<DWORD>(std::min(size, kMostAtOnce));
}

int open_file(const std::string& path, DWORD access, DWORD disposition,
              void* attributes = nullptr) {
  const HANDLE handle = CreateFileW(wide(path).c_str(), access, kShared,
                                    static_cast<SECURITY_ATTRIBUTES*>(attributes), disposition,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    set_errno();
    return -1;
  }
  const bool is_writable = (access & GENERIC_WRITE) != 0;
  const int file = _open_osfhandle(reinterpret_cast<intptr_t>(handle),
                                   (is_writable ? _O_RDWR : _O_RDONLY) | _O_BINARY | _O_NOINHERIT);
  if (file < 0) CloseHandle(handle);
  return file;
}

FileKind kind_of(DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return FileKind::kFolder;
  return (attributes & FILE_ATTRIBUTE_DEVICE) != 0 ? FileKind::kOther : FileKind::kRegular;
}

bool is_symbolic_link(HANDLE file) {
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  return GetFileInformationByHandleEx(file, FileAttributeTagInfo, &tag, sizeof tag) != 0 &&
         (tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag.ReparseTag == IO_REPARSE_TAG_SYMLINK || tag.ReparseTag == IO_REPARSE_TAG_MOUNT_POINT);
}

// Pipes, consoles and other devices have no more status than their kind.
bool status_of_handle(HANDLE file, FileStatus& status) {
  constexpr std::uint64_t kTicksPerSecond = 10000000;
  status = {};
  if (GetFileType(file) != FILE_TYPE_DISK) return true;
  BY_HANDLE_FILE_INFORMATION found = {};
  if (!GetFileInformationByHandle(file, &found)) {
    set_errno();
    return false;
  }
  status.kind = kind_of(found.dwFileAttributes);
  status.size = std::uint64_t{found.nFileSizeHigh} << 32U | found.nFileSizeLow;
  const std::uint64_t ticks = std::uint64_t{found.ftLastWriteTime.dwHighDateTime} << 32U |
                              found.ftLastWriteTime.dwLowDateTime;
  status.seconds = static_cast<std::int64_t>(ticks / kTicksPerSecond);  // since 1601
  status.nanoseconds = static_cast<std::int64_t>(ticks % kTicksPerSecond * 100);
  return true;
}

bool status_of_path(const std::string& path, DWORD flags, FileStatus& status) {
  const HANDLE file = CreateFileW(wide(path).c_str(), FILE_READ_ATTRIBUTES, kShared, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    set_errno();
    return false;
  }
  const bool is_read = status_of_handle(file, status);
  if (is_read && flags != 0 && is_symbolic_link(file)) status.kind = FileKind::kLink;
  CloseHandle(file);
  return is_read;
}

// What was typed on the console and has not been read yet.
class ConsoleInput {
 public:
  std::ptrdiff_t read(HANDLE console, char* bytes, std::size_t size) {
    if (text_.empty() && !fill(console)) {
      set_errno();
      return -1;
    }
    const std::size_t count = std::min(size, text_.size());
    std::copy_n(text_.data(), count, bytes);
    text_.erase(0, count);
    return static_cast<std::ptrdiff_t>(count);
  }

 private:
  static bool is_high_surrogate(wchar_t unit) { return (unit & 0xFC00) == 0xD800; }

  // Ctrl-Z at the beginning of a line is the end of the input.
  bool fill(HANDLE console) {
    constexpr DWORD kUnits = 4096;
    constexpr wchar_t kEnd = 0x1A;
    std::wstring units(kUnits, L'\0');
    DWORD count = 0;
    SetLastError(ERROR_SUCCESS);
    if (!ReadConsoleW(console, units.data(), kUnits, &count, nullptr)) return false;
    // Ctrl-C. This is not the end of the input: another thread is about to end the process.
    if (count == 0 && GetLastError() == ERROR_OPERATION_ABORTED) Sleep(INFINITE);
    units.resize(count);
    if (!units.empty() && units.front() == kEnd) return true;
    units.insert(0, half_);
    half_.clear();
    if (!units.empty() && is_high_surrogate(units.back())) {
      half_ = units.substr(units.size() - 1);
      units.pop_back();
    }
    text_ = utf8(units);
    return true;
  }

  std::string text_;
  std::wstring half_;  // of a character
};

// SQLite locks bytes of a page that it does not use. Other processes cannot read them meanwhile;
// they count as zeros.
constexpr std::uint64_t kLockBegin = 0x40000000;
constexpr std::uint64_t kLockEnd = kLockBegin + 512;

bool is_in_lock(std::uint64_t at) {
  return at >= kLockBegin && at < kLockEnd;
}

}  // namespace

bool read_status(const std::string& path, FileStatus& status) {
  return status_of_path(path, 0, status);
}

bool read_status(int file, FileStatus& status) {
  return status_of_handle(handle_of(file), status);
}

bool read_status_of_link(const std::string& path, FileStatus& status) {
  return status_of_path(path, FILE_FLAG_OPEN_REPARSE_POINT, status);
}

int open_to_read(const std::string& path) {
  return open_file(path, GENERIC_READ, OPEN_EXISTING);
}

int open_at_once(const std::string& path) {
  return open_to_read(path);
}

int create_file(const std::string& path) {
  const PrivateAttributes attributes;
  if (attributes.get() == nullptr) {
    errno = EACCES;
    return -1;
  }
  return open_file(path, GENERIC_READ | GENERIC_WRITE, CREATE_NEW, attributes.get());
}

int create_or_empty_file(const std::string& path) {
  const int file = open_file(path, GENERIC_WRITE, CREATE_ALWAYS);
  DWORD ignored = 0;  // not every file system has holes
  if (file >= 0) {
    DeviceIoControl(handle_of(file), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
  }
  return file;
}

void close_file(int file) {
  _close(file);
}

std::ptrdiff_t read_some(int file, char* bytes, std::size_t size) {
  static ConsoleInput console;
  DWORD mode = 0;
  if (file == kStandardInput && GetConsoleMode(handle_of(file), &mode) != 0) {
    return console.read(handle_of(file), bytes, size);
  }
  return _read(file, bytes, static_cast<unsigned>(at_once(size)));
}

std::ptrdiff_t read_some_at(int file, std::uint64_t at, char* bytes, std::size_t size) {
  if (at < kLockBegin) size = std::min<std::uint64_t>(size, kLockBegin - at);
  if (is_in_lock(at)) size = std::min<std::uint64_t>(size, kLockEnd - at);
  OVERLAPPED place = position(at);
  DWORD count = 0;
  if (ReadFile(handle_of(file), bytes, at_once(size), &count, &place)) {
    return static_cast<std::ptrdiff_t>(count);
  }
  const DWORD error = GetLastError();
  if (error == ERROR_HANDLE_EOF) return 0;
  if (error == ERROR_LOCK_VIOLATION && is_in_lock(at)) {
    std::fill_n(bytes, size, '\0');
    return static_cast<std::ptrdiff_t>(size);
  }
  errno = errno_of(error);
  return -1;
}

bool write_at(int file, std::uint64_t at, const char* bytes, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    OVERLAPPED place = position(at + done);
    DWORD count = 0;
    if (!WriteFile(handle_of(file), bytes + done, at_once(size - done), &count, &place)) {
      set_errno();
      return false;
    }
    done += count;
  }
  return true;
}

bool set_file_size(int file, std::uint64_t size) {
  FILE_END_OF_FILE_INFO end = {};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  if (SetFileInformationByHandle(handle_of(file), FileEndOfFileInfo, &end, sizeof end)) return true;
  set_errno();
  return false;
}

bool find_data(int file, std::uint64_t at, std::int64_t& begin, std::int64_t& end) {
  FILE_ALLOCATED_RANGE_BUFFER wanted = {};
  wanted.FileOffset.QuadPart = static_cast<LONGLONG>(at);
  wanted.Length.QuadPart = std::numeric_limits<LONGLONG>::max() - wanted.FileOffset.QuadPart;
  FILE_ALLOCATED_RANGE_BUFFER found = {};
  DWORD size = 0;
  begin = -1;
  end = -1;
  if (!DeviceIoControl(handle_of(file), FSCTL_QUERY_ALLOCATED_RANGES, &wanted, sizeof wanted,
                       &found, sizeof found, &size, nullptr) &&
      GetLastError() != ERROR_MORE_DATA) {
    return false;
  }
  if (size < sizeof found) return true;
  begin = std::max<std::int64_t>(found.FileOffset.QuadPart, wanted.FileOffset.QuadPart);
  end = found.FileOffset.QuadPart + found.Length.QuadPart;
  return end > begin;
}

}  // namespace corvan_tool
