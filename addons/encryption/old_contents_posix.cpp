#include "addons/encryption/old_contents.h"

#include <sys/stat.h>
#if defined(__linux__)
#include <sys/vfs.h>
#endif

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "addons/encryption/descriptor.h"

namespace Corvan::encryption {

namespace {

constexpr std::size_t kPage = 4096;
using FirstPage = std::array<char, kPage>;

// Only file systems that are known to write in place. Others copy on write, keep a log, or are
// remote. The path is examined, because opening and closing a file would release locks on it.
bool writes_in_place([[maybe_unused]] const std::string& path) {
#if defined(__linux__)
  constexpr std::array<unsigned long, 3> kTypes = {
      0xEF53,      // ext2, ext3, ext4
      0x4d44,      // FAT
      0x2011BAB0,  // exFAT
  };
  struct statfs system {};
  if (statfs(path.c_str(), &system) != 0) return false;
  const auto type = static_cast<unsigned long>(system.f_type);
  return std::find(kTypes.begin(), kTypes.end(), type) != kTypes.end();
#else
  return false;
#endif
}

// Big-endian, as everywhere in SQLite's header.
void put_number(FirstPage& page, std::size_t at, std::size_t bytes, std::size_t value) {
  for (std::size_t i = bytes; i-- > 0; value >>= 8U)
    page[at + i] = static_cast<char>(value & 0xffU);
}

// The first page of an empty database in rollback mode, with the header's page size, text encoding
// and reserved bytes.
FirstPage emptied(const FirstPage& old) {
  constexpr std::size_t kHeader = 100;
  constexpr char kTableLeaf = 13;
  FirstPage page{};
  std::copy_n(old.begin(), kHeader, page.begin());
  for (const std::size_t at : {18U, 19U}) put_number(page, at, 1, 1);  // rollback mode
  ++page[27];                                                          // the file has changed
  put_number(page, 28, 4, 1);                                          // pages
  for (const std::size_t at : {32U, 36U, 52U, 64U}) put_number(page, at, 4, 0);  // no free pages
  std::copy_n(page.begin() + 24, 4, page.begin() + 92);  // the number of pages is valid
  page[kHeader] = kTableLeaf;
  put_number(page, kHeader + 5, 2, kPage - static_cast<unsigned char>(old[20]));
  return page;
}

bool is_plain_database(const FirstPage& page) {
  constexpr std::string_view kHeader("SQLite format 3\0\x10\0", 18);  // pages of 4096 bytes
  return std::string_view(page.data(), kHeader.size()) == kHeader;
}

void write_zeros(const Descriptor& file, off_t from, off_t end) {
  constexpr std::array<char, 65536> kZeros{};
  for (off_t at = from; at < end;) {
    const auto rest = static_cast<std::size_t>(end - at);
    const ssize_t written = pwrite(file.get(), kZeros.data(), std::min(rest, kZeros.size()), at);
    if (written <= 0) return;
    at += written;
  }
}

void overwrite_file(const Descriptor& file) {
  struct stat status {};
  FirstPage page{};
  if (fstat(file.get(), &status) != 0) return;
  const auto whole = static_cast<ssize_t>(page.size());
  off_t kept = 0;
  if (pread(file.get(), page.data(), page.size(), 0) == whole && is_plain_database(page)) {
    page = emptied(page);
    if (pwrite(file.get(), page.data(), page.size(), 0) != whole) return;
    kept = whole;
  }
  write_zeros(file, kept, status.st_size);
  static_cast<void>(file.sync());
}

}  // namespace

struct OldContents::Files {
  std::vector<Descriptor> open;
};

OldContents::OldContents() : files_(std::make_unique<Files>()) {}
OldContents::~OldContents() = default;

void OldContents::add(const std::string& path) {
  if (!writes_in_place(path)) return;
  Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (file.is_open()) files_->open.push_back(std::move(file));
}

void OldContents::overwrite() const {
  for (const Descriptor& file : files_->open) overwrite_file(file);
}

}  // namespace Corvan::encryption
