#include <windows.h>

#include <filesystem>

#include "tests/addons/statement_cache/open_files.h"

namespace corvan_test {

namespace {

// An open file cannot be opened without sharing.
bool is_open(const std::filesystem::path& file) {
  const HANDLE opened = CreateFileW(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_SHARING_VIOLATION;
  CloseHandle(opened);
  return false;
}

}  // namespace

std::vector<std::string> open_files_in(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& each : std::filesystem::directory_iterator(std::filesystem::u8path(folder))) {
    if (is_open(each.path())) files.push_back(folder + each.path().filename().u8string());
  }
  return files;
}

}  // namespace corvan_test
