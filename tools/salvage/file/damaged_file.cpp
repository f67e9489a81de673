#include "tools/salvage/file/damaged_file.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "addons/encryption/file_kind.h"
#include "tools/salvage/file/record.h"
#include "tools/store/file_names.h"
#include "tools/store/key.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kStorePage = 4096;
constexpr std::size_t kLeastUsable = 480;  // SQLite's limit

using ReadPage = std::function<bool(PageNumber page, std::string& bytes)>;

// The share of sound pages in a sample of the pages 2 to `pages`, if `usable` bytes of each page
// are in use. Cells and free space fill a page to its last byte, so hardly any page is sound at a
// wrong size.
double share_of_sound_pages(PageNumber pages, std::size_t usable, const ReadPage& read) {
  constexpr PageNumber kSamples = 256;
  const PageNumber step = std::max<PageNumber>(1, pages / kSamples);
  std::uint64_t tried = 0;
  std::uint64_t sound = 0;
  std::string bytes;
  for (std::uint64_t number = 2; number <= pages; number += step) {
    ++tried;
    if (!read(static_cast<PageNumber>(number), bytes)) continue;
    const auto page = parse_page(bytes, usable, false);
    if (page && page->sound && !page->cells.empty()) ++sound;
  }
  return tried == 0 ? 0 : static_cast<double>(sound) / static_cast<double>(tried);
}

// The page size that a file's header states; 0 if it states none, or if the three constants after
// it are wrong.
std::size_t stated_page_size(std::string_view header) {
  if (header.size() < kFileHeader || header.substr(21, 3) != "@  ") return 0;
  const auto code = static_cast<std::size_t>(number_at(header, 16, 2));
  const std::size_t size = code == 1 ? kLargestPage : code;
  return is_page_size(size) ? size : 0;
}

std::string beginning_of(const ReadOnlyFile& file) {
  std::string bytes;
  if (!file.read(0, PageCipher::kSalt, bytes)) bytes.clear();
  return bytes;
}

std::unique_ptr<const PageCipher> cipher_for(std::size_t page_size, const std::string& beginning) {
  if (!used_key().is_valid()) return nullptr;
  return std::make_unique<const PageCipher>(used_key(), page_size, beginning);
}

double share_at_size(const ReadOnlyFile& file, std::size_t page_size) {
  const auto cipher = cipher_for(page_size, beginning_of(file));
  const auto pages =
      static_cast<PageNumber>(std::min<std::uint64_t>(file.size() / page_size, UINT32_MAX - 1));
  const std::size_t usable = page_size - (cipher == nullptr ? 0 : cipher->reserved());
  return share_of_sound_pages(pages, usable, [&](PageNumber page, std::string& bytes) {
    return file.read((page - std::uint64_t{1}) * page_size, page_size, bytes) &&
           (cipher == nullptr || cipher->decrypt(page, bytes));
  });
}

// The page size at which most of the file's pages are sound. If several are equally good, the
// stated size is used, or that of a new store if none is stated.
std::size_t guess_page_size(const ReadOnlyFile& file, std::size_t stated) {
  std::size_t best = stated == 0 ? kStorePage : stated;
  double best_share = share_at_size(file, best);
  for (std::size_t size = kSmallestPage; size <= kLargestPage; size *= 2) {
    const double share = share_at_size(file, size);
    if (share > best_share) {
      best = size;
      best_share = share;
    }
  }
  return best;
}

// The log's path. Throws ToolError if something other than a file has that name.
std::string log_of(const std::string& path) {
  std::string log = path + kLogSuffix;
  require_regular_or_missing(log, "; move it away and try again");
  return log;
}

}  // namespace

DamagedFile::DamagedFile(const std::string& path, bool with_log)
    : main_(path, with_log), wal_(with_log ? log_of(path) : "") {
  refuse_log(path);
  find_page_size();
  const std::uint64_t pages = (main_.size() + page_size_ - 1) / page_size_;
  pages_in_file_ = static_cast<PageNumber>(std::min<std::uint64_t>(pages, UINT32_MAX - 1));
  page_count_ = wal_.read_frames(page_size_, pages_in_file_);
  find_pages();
  if (used_key().is_valid()) {
    find_key(path);
  } else {
    refuse_encrypted(path);
  }
  read_header();
}

void DamagedFile::refuse_log(const std::string& path) const {
  std::string magic;
  if (!main_.read(0, 4, magic) || !is_wal(magic)) return;
  throw ToolError(path +
                  ": this is a write-ahead log; name the file next to it instead, without -wal, "
                  "even if that file is gone");
}

// The log's header is trusted more than the file's, since it has a checksum.
void DamagedFile::find_page_size() {
  std::string header;
  if (!main_.read(0, kFileHeader, header)) header.clear();
  page_size_ = wal_.page_size();
  if (page_size_ == 0) page_size_ = guess_page_size(main_, stated_page_size(header));
  usable_ = page_size_;
}

void DamagedFile::find_pages() {
  std::vector<PageRange> ranges;
  for (const auto& [begin, end] : main_.data()) {
    const std::uint64_t first = begin / page_size_ + 1;
    const std::uint64_t last = std::min<std::uint64_t>((end - 1) / page_size_ + 1, page_count_);
    if (first > last) break;
    ranges.push_back({static_cast<PageNumber>(first), static_cast<PageNumber>(last)});
  }
  wal_.each_page([&](PageNumber page) {
    if (page <= page_count_) ranges.push_back({page, page});
  });
  there_ = PageSet(std::move(ranges));
}

// A passphrase's key is derived from the beginning of the file. If that is damaged, the log may
// have it as well.
void DamagedFile::find_key(const std::string& path) {
  const std::string beginning = beginning_of(main_);
  cipher_ = cipher_for(page_size_, beginning);
  usable_ = page_size_ - cipher_->reserved();
  if (there_.count() == 0 || can_decrypt()) return;
  cipher_ = cipher_for(page_size_, wal_.beginning_of_file(PageCipher::kSalt));
  if (can_decrypt()) return;
  const bool is_plain = beginning == kMagic;
  throw ToolError(path + ": " +
                  (is_plain ? refusal_text(Corvan::KeyRefusal::kNotEncrypted)
                            : "no page can be decrypted: the key is wrong, or the file is not "
                              "encrypted, or every page is damaged"));
}

bool DamagedFile::can_decrypt() const {
  bool found = false;
  std::string bytes;
  there_.each([&](PageNumber page) { found = found || read(page, bytes); });
  return found;
}

// Nothing can be recovered from such a file, and the user should learn why.
void DamagedFile::refuse_encrypted(const std::string& path) const {
  if (!looks_encrypted()) return;
  throw ToolError(path +
                  ": encrypted or damaged: its pages consist of random bytes; if it is encrypted, "
                  "name its key with --key-file");
}

// An encrypted file consists of whole pages unless it was cut off. Ciphers leave the page size in
// the header readable.
bool DamagedFile::looks_encrypted() const {
  std::string header;
  const bool has_page_size =
      main_.read(0, kFileHeader, header) && stated_page_size(header) == page_size_;
  if (there_.count() == 0 || (main_.size() % page_size_ != 0 && !has_page_size)) return false;
  constexpr std::size_t kSamples = 256;
  const std::size_t step = std::max<std::size_t>(1, there_.count() / kSamples);
  std::size_t place = 0;
  bool are_random = true;
  std::string bytes;
  there_.each([&](PageNumber page) {
    if (!are_random || place++ % step != 0 || !read(page, bytes)) return;
    const auto* const stored = reinterpret_cast<const unsigned char*>(bytes.data());
    are_random = Corvan::encryption::is_random(stored, held(page));
  });
  return are_random;
}

void DamagedFile::read_header() {
  std::string first;
  if (!read(1, first)) return;
  const std::size_t size = stated_page_size(first);
  if (size == 0) return;
  const auto reserved = static_cast<std::size_t>(static_cast<unsigned char>(first[20]));
  find_usable(reserved);
  header_is_sound_ = std::string_view(first).substr(0, kMagic.size()) == kMagic &&
                     size == page_size_ && usable_ == page_size_ - reserved;
  first_free_ = static_cast<PageNumber>(number_at(first, 32, 4));
  // The page count is valid only if the change counter next to it is up to date.
  if (number_at(first, 24, 4) == number_at(first, 92, 4)) {
    declared_pages_ = static_cast<PageNumber>(number_at(first, 28, 4));
  }
}

// Uses the header's number of reserved bytes, unless more pages are sound without them.
void DamagedFile::find_usable(std::size_t reserved) {
  if (reserved == 0 || page_size_ - reserved < kLeastUsable || cipher_ != nullptr) return;
  const auto share = [this](std::size_t usable) {
    return share_of_sound_pages(page_count_, usable, [this](PageNumber page, std::string& bytes) {
      return read(page, bytes);
    });
  };
  if (share(page_size_ - reserved) >= share(page_size_)) usable_ = page_size_ - reserved;
}

bool DamagedFile::read(PageNumber page, std::string& bytes) const {
  return read_stored(page, bytes) && (cipher_ == nullptr || cipher_->decrypt(page, bytes));
}

bool DamagedFile::read_stored(PageNumber page, std::string& bytes) const {
  if (!is_page(page)) return false;
  if (is_in_log(page)) return wal_.read(page, bytes);
  const std::size_t there = held(page);
  if (there == 0 || !main_.read((page - std::uint64_t{1}) * page_size_, there, bytes)) return false;
  bytes.resize(page_size_);
  return true;
}

std::size_t DamagedFile::held(PageNumber page) const {
  if (is_in_log(page)) return page_size_;
  const std::uint64_t begin = (page - std::uint64_t{1}) * page_size_;
  if (begin >= main_.size()) return 0;
  return static_cast<std::size_t>(std::min<std::uint64_t>(page_size_, main_.size() - begin));
}

std::optional<Page> DamagedFile::parse(PageNumber page, std::string_view bytes) const {
  return parse_page(bytes.substr(0, held(page)), usable_, page == 1);
}

void DamagedFile::each_unusable(const std::function<void(std::string_view bytes)>& read) const {
  wal_.each_unusable([&](PageNumber page, const std::string& stored) {
    std::string bytes = stored;
    if (cipher_ == nullptr || cipher_->decrypt(page, bytes)) read(bytes);
  });
}

}  // namespace corvan_tool
