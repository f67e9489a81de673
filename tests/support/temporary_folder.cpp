#include "tests/support/temporary_folder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tests/support/encryption.h"

namespace corvan_test {

namespace {

// Called by a destructor, so it does not throw.
void make_folders_writable(const std::string& path) {
  const auto add = std::filesystem::perm_options::add;
  std::error_code ignored;
  std::filesystem::permissions(path, std::filesystem::perms::owner_all, add, ignored);
  std::filesystem::directory_iterator entry(path, ignored);
  for (; entry != std::filesystem::directory_iterator(); entry.increment(ignored)) {
    if (entry->is_symlink(ignored) || !entry->is_directory(ignored)) continue;
    make_folders_writable(entry->path().string());
  }
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "corvan-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = name + "/";
  if (encryption != nullptr) encryption->give_key(path_);
}

TemporaryFolder::~TemporaryFolder() {
  if (encryption != nullptr) encryption->take_key(path_);
  std::error_code failure;
  std::filesystem::remove_all(path_, failure);
  if (!failure) return;
  make_folders_writable(path_);  // only root can empty a read-only folder
  std::filesystem::remove_all(path_, failure);
}

void prefer_memory() {
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
}

bool file_exists(const std::string& path) {
  return std::filesystem::exists(path);
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary);
  if (!(out << content << std::flush)) throw std::runtime_error("cannot write " + path);
}

}  // namespace corvan_test
