#include "tools/platform/own_files.h"

#include <windows.h>

#include <malloc.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "tools/platform/file_system.h"
#include "tools/platform/wide.h"

namespace corvan_tool {

namespace {

// The last names of paths, with the delimiter before them.
class Names {
 public:
  explicit Names(const std::vector<std::string>& paths) {
    for (std::string path : paths) {
      while (!path.empty() && is_path_delimiter(path.back())) path.pop_back();
      const std::size_t begin = path.find_last_of("/\\");
      names_.push_back(wide("\\" + path.substr(begin == std::string::npos ? 0 : begin + 1)));
    }
  }

  bool has_file(HANDLE file) {
    return is_in(GetFinalPathNameByHandleW(file, path_.data(), size(), VOLUME_NAME_DOS));
  }

  bool has_view(void* view) {
    return is_in(K32GetMappedFileNameW(GetCurrentProcess(), view, path_.data(), size()));
  }

 private:
  DWORD size() const { return static_cast<DWORD>(path_.size()); }

  bool is_in(std::size_t length) const {
    const std::wstring_view path(path_.data(), length < path_.size() ? length : 0);
    return std::any_of(names_.begin(), names_.end(), [path](const std::wstring& name) {
      return path.find(name) != std::wstring_view::npos;
    });
  }

  std::vector<std::wstring> names_;
  std::vector<wchar_t> path_ = std::vector<wchar_t>(32768);
};

// No thread is suspended while it owns a heap: this one will need both.
class HeapsLock {
 public:
  HeapsLock() {
    for (const HANDLE heap : heaps_) HeapLock(heap);
  }
  HeapsLock(const HeapsLock&) = delete;
  HeapsLock& operator=(const HeapsLock&) = delete;
  ~HeapsLock() {
    for (const HANDLE heap : heaps_) HeapUnlock(heap);
  }

 private:
  const std::array<HANDLE, 2> heaps_ = {reinterpret_cast<HANDLE>(_get_heap_handle()),
                                        GetProcessHeap()};
};

void suspend_other_threads(DWORD spared) {
  const HeapsLock lock;
  const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 one = {};
  one.dwSize = sizeof one;
  for (BOOL more = Thread32First(all, &one); more; more = Thread32Next(all, &one)) {
    const DWORD id = one.th32ThreadID;
    if (one.th32OwnerProcessID != GetCurrentProcessId() || id == GetCurrentThreadId() ||
        id == spared) {
      continue;
    }
    const HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME, FALSE, id);
    if (thread != nullptr) SuspendThread(thread);
  }
}

void unmap_views(Names& names) {
  MEMORY_BASIC_INFORMATION region = {};
  for (char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
       at = static_cast<char*>(region.BaseAddress) + region.RegionSize) {
    if (region.Type == MEM_MAPPED && region.State == MEM_COMMIT && names.has_view(at)) {
      UnmapViewOfFile(region.AllocationBase);
    }
  }
}

// A file can only be deleted once the sections that map it are closed, too.
bool is_section_of(Names& names, HANDLE handle) {
  void* const view = MapViewOfFile(handle, FILE_MAP_READ, 0, 0, 1);
  if (view == nullptr) return false;
  const bool is_of = names.has_view(view);
  UnmapViewOfFile(view);
  return is_of;
}

bool is_standard_stream(HANDLE handle) {
  return handle == GetStdHandle(STD_INPUT_HANDLE) || handle == GetStdHandle(STD_OUTPUT_HANDLE) ||
         handle == GetStdHandle(STD_ERROR_HANDLE);
}

void close_handles(Names& names) {
  constexpr std::uintptr_t kStep = 4;
  constexpr std::uintptr_t kEnd = 0x10000;
  for (std::uintptr_t number = kStep; number < kEnd; number += kStep) {
    const auto handle = reinterpret_cast<HANDLE>(number);
    DWORD flags = 0;
    if (is_standard_stream(handle) || !GetHandleInformation(handle, &flags)) continue;
    const bool is_file = GetFileType(handle) == FILE_TYPE_DISK;
    if (is_file ? names.has_file(handle) : is_section_of(names, handle)) CloseHandle(handle);
  }
}

}  // namespace

void release_own_files(const std::vector<std::string>& paths, std::uint32_t spared) {
  Names names(paths);
  suspend_other_threads(spared);
  unmap_views(names);
  close_handles(names);
}

}  // namespace corvan_tool
