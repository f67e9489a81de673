#include "tests/support/temporary_folder.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <system_error>

#include "tests/support/encryption.h"

namespace corvan_test {

namespace fs = std::filesystem;

namespace {

bool memory_preferred = false;

std::string random_name() {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::string name = "corvan-test-";
  for (int i = 0; i < 12; ++i) name += kLetters[random() % (sizeof(kLetters) - 1)];
  return name;
}

// A new folder that only this user can enter; an empty path if the parent does not allow it.
fs::path create_in(const fs::path& parent) {
  std::error_code failure;
  while (!failure) {
    const fs::path path = parent / random_name();
    if (!fs::create_directory(path, failure)) continue;
    fs::permissions(path, fs::perms::owner_all, failure);
    return path;
  }
  return {};
}

fs::path create_folder() {
  fs::path path;
  if (memory_preferred && std::getenv("TMPDIR") == nullptr)
    path = create_in(fs::absolute("/dev/shm"));
  return path.empty() ? create_in(fs::temp_directory_path()) : path;
}

// Called by a destructor, so it does not throw.
void make_folders_writable(const fs::path& path) {
  const auto add = fs::perm_options::add;
  std::error_code ignored;
  fs::permissions(path, fs::perms::owner_all, add, ignored);
  fs::directory_iterator entry(path, ignored);
  for (; entry != fs::directory_iterator(); entry.increment(ignored)) {
    if (entry->is_symlink(ignored) || !entry->is_directory(ignored)) continue;
    make_folders_writable(entry->path());
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  const fs::path path = create_folder();
  if (path.empty()) throw std::runtime_error("no temporary folder");
  path_ = path.generic_u8string() + "/";
  if (encryption != nullptr) encryption->give_key(path_);
}

TemporaryFolder::~TemporaryFolder() {
  if (encryption != nullptr) encryption->take_key(path_);
  const fs::path path = fs::u8path(path_);
  std::error_code failure;
  fs::remove_all(path, failure);
  if (!failure) return;
  make_folders_writable(path);  // only root can empty a read-only folder
  fs::remove_all(path, failure);
}

void prefer_memory() {
  memory_preferred = true;
}

bool file_exists(const std::string& path) {
  return fs::exists(fs::u8path(path));
}

std::string read_file(const std::string& path) {
  std::ifstream in(fs::u8path(path), std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(fs::u8path(path), std::ios::binary);
  if (!(out << content << std::flush)) throw std::runtime_error("cannot write " + path);
}

}  // namespace corvan_test
