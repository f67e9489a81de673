#include "addons/encryption/old_contents.h"

#include <sys/stat.h>
#if defined(__linux__)
#include <sys/vfs.h>
#endif

#include <algorithm>
#include <array>
#include <cstddef>

namespace Corvan::encryption {

namespace {

// Only file systems that are known to write in place. Others copy on write, keep a log, or are
// remote.
bool writes_in_place([[maybe_unused]] int descriptor) {
#if defined(__linux__)
  constexpr std::array<unsigned long, 3> kTypes = {
      0xEF53,      // ext2, ext3, ext4
      0x4d44,      // FAT
      0x2011BAB0,  // exFAT
  };
  struct statfs system {};
  if (fstatfs(descriptor, &system) != 0) return false;
  const auto type = static_cast<unsigned long>(system.f_type);
  return std::find(kTypes.begin(), kTypes.end(), type) != kTypes.end();
#else
  return false;
#endif
}

void write_zeros(const Descriptor& file) {
  constexpr std::array<char, 65536> kZeros{};
  struct stat status {};
  if (fstat(file.get(), &status) != 0) return;
  off_t at = 0;
  while (at < status.st_size) {
    const auto rest = static_cast<std::size_t>(status.st_size - at);
    const ssize_t written = pwrite(file.get(), kZeros.data(), std::min(rest, kZeros.size()), at);
    if (written <= 0) return;
    at += written;
  }
  static_cast<void>(file.sync());
}

}  // namespace

void OldContents::add(const std::string& path) {
  Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  if (file.is_open() && writes_in_place(file.get())) files_.push_back(std::move(file));
}

void OldContents::overwrite() const {
  for (const Descriptor& file : files_) write_zeros(file);
}

}  // namespace Corvan::encryption
