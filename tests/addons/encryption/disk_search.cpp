#include "tests/addons/encryption/disk_search.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

std::string in_utf16(const std::string& ascii, bool big_endian) {
  std::string text;
  for (const char c : ascii) {
    if (big_endian) text += '\0';
    text += c;
    if (!big_endian) text += '\0';
  }
  return text;
}

// Files of other users cannot be read, and files of other programs vanish: both read as empty.
std::string content_of(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool has_plaintext(const std::string& content) {
  static const std::vector<std::string> forms = {planted_word(), in_utf16(planted_word(), false),
                                                 in_utf16(planted_word(), true)};
  for (const std::string& form : forms) {
    if (content.find(form) != std::string::npos) return true;
  }
  return false;
}

void search(const fs::path& path, std::string& found) {
  std::error_code gone;
  if (!fs::is_regular_file(path, gone) || gone) return;
  if (has_plaintext(content_of(path))) found += path.string() + "\n";
}

// Under Wine, these are the folders of the Linux system.
constexpr bool kHasPosixFolders = fs::path::preferred_separator == '/';

std::set<fs::path> temporary_folders() {
  std::set<fs::path> folders = {fs::temp_directory_path()};
  if (kHasPosixFolders) folders.insert({"/tmp", "/var/tmp", "/usr/tmp"});
  for (const char* const name : {"TMPDIR", "SQLITE_TMPDIR"}) {
    if (const char* const folder = std::getenv(name)) folders.insert(folder);
  }
  return folders;
}

// SQLite creates its temporary files in the folder itself.
std::set<fs::path> temporary_files() {
  std::set<fs::path> files;
  for (const fs::path& folder : temporary_folders()) {
    std::error_code gone;
    fs::directory_iterator entry(folder, gone);
    for (; !gone && entry != fs::directory_iterator(); entry.increment(gone)) {
      files.insert(entry->path());
    }
  }
  return files;
}

const std::set<fs::path> files_at_start = temporary_files();

// The standard streams may be files too, with the output of the test.
void search_open_files(std::string& found) {
  std::vector<fs::path> links;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) links.push_back(entry.path());
  for (const fs::path& link : links) {
    if (std::stoi(link.filename().string()) > STDERR_FILENO) search(link, found);
  }
}

}  // namespace

Files files_in(const std::string& folder) {
  Files files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const bool is_index = name.size() > 4 && name.substr(name.size() - 4) == "-shm";
    if (entry.is_regular_file() && !is_index) files[name] = read_file(entry.path().string());
  }
  return files;
}

void put_files(const std::string& folder, const Files& files) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (!entry.is_directory()) fs::remove(entry.path());
  }
  for (const auto& [name, content] : files) write_file((fs::path(folder) / name).string(), content);
}

const std::string& planted_word() {
  static const std::string word = "Goldregenpfeifer" + std::to_string(getpid());
  return word;
}

std::string plaintext_below(const std::string& folder) {
  std::string found;
  std::error_code gone;
  fs::recursive_directory_iterator entry(folder, gone);
  for (; !gone && entry != fs::recursive_directory_iterator(); entry.increment(gone)) {
    search(entry->path(), found);
  }
  return found;
}

std::string plaintext_elsewhere() {
  std::string found;
  for (const fs::path& file : temporary_files()) {
    if (files_at_start.count(file) == 0) search(file, found);
  }
  if (kHasPosixFolders) search_open_files(found);
  return found;
}

std::string files_with_plaintext(const std::string& folder) {
  return plaintext_below(folder) + plaintext_elsewhere();
}

}  // namespace corvan_test
