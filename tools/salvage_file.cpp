#include "tools/salvage_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::size_t kLogHeader = 32;
constexpr std::size_t kFrameHeader = 24;
constexpr std::size_t kStorePage = 4096;
constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;

bool is_page_size(std::size_t size) {
  return size >= kSmallestPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

// The page size that a file's header gives, which has three fixed numbers behind it; else 0.
std::size_t page_size_in(std::string_view header) {
  if (header.size() < kFileHeader || header.substr(21, 3) != "@  ") return 0;
  const auto size = static_cast<std::size_t>(number_at(header, 16, 2));
  const std::size_t page = size == 1 ? kLargestPage : size;
  return is_page_size(page) ? page : 0;
}

// The share of the file's pages that are sound when they are taken to be of that size. Cells and
// free space fill a page to its last byte, so hardly one is when they are of another.
double sound_share(const ReadOnlyFile& file, std::size_t page_size) {
  constexpr std::uint64_t kSamples = 256;
  const std::uint64_t pages = file.size() / page_size;
  const std::uint64_t step = std::max<std::uint64_t>(1, pages / kSamples);
  std::uint64_t tried = 0;
  std::uint64_t sound = 0;
  std::string bytes;
  for (std::uint64_t number = 1; number < pages; number += step) {
    ++tried;
    if (!file.read(number * page_size, page_size, bytes)) continue;
    const auto page = parse_page(bytes, page_size, false);
    if (page && page->sound && !page->cells.empty()) ++sound;
  }
  return tried == 0 ? 0 : static_cast<double>(sound) / static_cast<double>(tried);
}

std::size_t guessed_page_size(const ReadOnlyFile& file) {
  std::size_t best = kStorePage;
  double best_share = sound_share(file, best);
  for (std::size_t size = kSmallestPage; size <= kLargestPage; size *= 2) {
    const double share = sound_share(file, size);
    if (share > best_share) {
      best = size;
      best_share = share;
    }
  }
  return best;
}

}  // namespace

ReadOnlyFile::ReadOnlyFile(const std::string& path, bool may_be_missing) : path_(path) {
  // Not to wait for a writer where a pipe is in the place of the file.
  fd_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd_ < 0) {
    if (may_be_missing && errno == ENOENT) return;
    throw ToolError(path + ": " + std::strerror(errno));
  }
  if (fstat(fd_, &status_) != 0 || !S_ISREG(status_.st_mode)) {
    close(fd_);
    throw ToolError(path + ": not a file");
  }
}

ReadOnlyFile::~ReadOnlyFile() {
  if (fd_ >= 0) close(fd_);
}

bool ReadOnlyFile::read(std::uint64_t at, std::size_t size, std::string& bytes) const {
  bytes.resize(size);
  std::size_t done = 0;
  while (fd_ >= 0 && done < size) {
    const ssize_t count = pread(fd_, &bytes[done], size - done, static_cast<off_t>(at + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done == size;
}

bool ReadOnlyFile::has_changed() const {
  struct stat now = {};
  if (fd_ < 0) return stat(path_.c_str(), &now) == 0;
  return fstat(fd_, &now) != 0 || now.st_size != status_.st_size ||
         now.st_mtim.tv_sec != status_.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

struct DamagedFile::Frame {
  PageNumber page = 0;
  PageNumber committed =
      0;  // the file's pages after the commit that this frame ends; 0: it ends none
  std::string salt;
  Checksum checksum;
  std::string summed;  // what the checksum is of
};

DamagedFile::DamagedFile(const std::string& path) : main_(path, false), wal_(path + "-wal", true) {
  std::string header;
  if (!main_.read(0, kFileHeader, header)) header.clear();
  read_log_header();
  find_page_size(header);
  const std::uint64_t pages = (main_.size() + page_size_ - 1) / page_size_;
  page_count_ = static_cast<PageNumber>(std::min<std::uint64_t>(pages, UINT32_MAX - 1));
  read_log();
  read_header();
}

void DamagedFile::find_page_size(std::string_view header) {
  page_size_ = page_size_in(header);
  if (page_size_ == 0) page_size_ = log_page_size_;
  if (page_size_ == 0) page_size_ = guessed_page_size(main_);
  usable_ = page_size_;
}

DamagedFile::Checksum DamagedFile::sum(Checksum start, std::string_view bytes) const {
  const auto word = [&](std::size_t at) {
    const auto value = static_cast<std::uint32_t>(number_at(bytes, at, 4));
    return log_is_big_endian_ ? value : __builtin_bswap32(value);
  };
  for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
    start.first += word(at) + start.second;
    start.second += word(at + 4) + start.first;
  }
  return start;
}

void DamagedFile::read_log_header() {
  std::string header;
  if (!wal_.read(0, kLogHeader, header)) return;
  const std::uint64_t magic = number_at(header, 0, 4);
  log_is_big_endian_ = magic == 0x377f0683;
  const Checksum found = sum({}, std::string_view(header).substr(0, 24));
  const auto size = static_cast<std::size_t>(number_at(header, 8, 4));
  log_header_is_sound_ = (magic == 0x377f0682 || log_is_big_endian_) && is_page_size(size) &&
                         found.first == number_at(header, 24, 4) &&
                         found.second == number_at(header, 28, 4);
  if (!log_header_is_sound_) return;
  log_page_size_ = size;
  log_salt_ = header.substr(16, 8);
  log_start_ = found;
}

bool DamagedFile::read_frame(std::uint64_t number, Frame& frame) const {
  const std::size_t size = kFrameHeader + page_size_;
  std::string bytes;
  if (!wal_.read(kLogHeader + number * size, size, bytes)) return false;
  frame.page = static_cast<PageNumber>(number_at(bytes, 0, 4));
  frame.committed = static_cast<PageNumber>(number_at(bytes, 4, 4));
  frame.salt = bytes.substr(8, 8);
  frame.checksum.first = static_cast<std::uint32_t>(number_at(bytes, 16, 4));
  frame.checksum.second = static_cast<std::uint32_t>(number_at(bytes, 20, 4));
  frame.summed = bytes.substr(0, 8) + bytes.substr(kFrameHeader);
  return frame.page != 0;
}

void DamagedFile::read_log() {
  if (wal_.size() <= kLogHeader) return;
  log_.frames = (wal_.size() - kLogHeader) / (kFrameHeader + page_size_);
  std::uint64_t number = 0;
  if (log_header_is_sound_ && log_page_size_ == page_size_) {
    std::unordered_map<PageNumber, std::uint64_t> uncommitted;
    PageNumber largest = page_count_;
    Checksum expected = log_start_;
    Frame frame;
    for (; number < log_.frames && read_frame(number, frame) && frame.salt == log_salt_; ++number) {
      expected = sum(expected, frame.summed);
      if (expected.first != frame.checksum.first || expected.second != frame.checksum.second) break;
      uncommitted[frame.page] = number;
      largest = std::max(largest, frame.page);
      if (frame.committed == 0) continue;
      for (const auto& [page, at] : uncommitted) in_log_[page] = at;
      uncommitted.clear();
      log_.used = number + 1;
      page_count_ = std::min(frame.committed, largest);
    }
  }
  find_unusable(log_.used, number);
}

// A frame's checksum continues that of the frame before, as it stands in the log. So a frame behind
// a damaged one can still be told from noise and from frames of the log's earlier rounds.
void DamagedFile::find_unusable(std::uint64_t from, std::uint64_t broken) {
  Frame frame;
  Frame before;
  bool committed = false;
  if (!log_header_is_sound_) {
    std::string header;
    if (wal_.read(0, 4, header)) log_is_big_endian_ = header == "\x37\x7f\x06\x83";
  }
  for (std::uint64_t number = from; number < log_.frames; ++number) {
    before.checksum = log_start_;
    if (number > 0 && !read_frame(number - 1, before)) continue;
    if (!read_frame(number, frame)) continue;
    if (log_salt_.empty()) log_salt_ = frame.salt;
    const Checksum found = sum(before.checksum, frame.summed);
    if (frame.salt != log_salt_ || found.first != frame.checksum.first ||
        found.second != frame.checksum.second) {
      continue;
    }
    unusable_.push_back(number);
    committed = committed || (number >= broken && frame.committed != 0);
  }
  log_.damaged = committed || (!log_header_is_sound_ && log_.frames > 0);
  // Without a commit behind the break they are what a transaction wrote that never ended.
  if (!log_.damaged) unusable_.clear();
  log_.unusable = unusable_.size();
}

void DamagedFile::read_header() {
  std::string first;
  if (!read(1, first)) return;
  const std::size_t size = page_size_in(first);
  if (size != page_size_) return;
  header_is_sound_ = std::string_view(first).substr(0, kMagic.size()) == kMagic;
  const auto reserved = static_cast<unsigned char>(first[20]);
  if (page_size_ - reserved >= 480) usable_ = page_size_ - reserved;
  first_free_ = static_cast<PageNumber>(number_at(first, 32, 4));
  // Valid when the same change wrote it.
  if (number_at(first, 24, 4) == number_at(first, 92, 4)) {
    declared_pages_ = static_cast<PageNumber>(number_at(first, 28, 4));
  }
}

bool DamagedFile::read(PageNumber page, std::string& bytes) const {
  if (page == 0 || page > page_count_) return false;
  const auto in_log = in_log_.find(page);
  if (in_log != in_log_.end()) {
    const std::uint64_t frame = in_log->second * (kFrameHeader + page_size_);
    return wal_.read(kLogHeader + frame + kFrameHeader, page_size_, bytes);
  }
  return main_.read((page - std::uint64_t{1}) * page_size_, page_size_, bytes);
}

void DamagedFile::each_unusable(const std::function<void(std::string_view bytes)>& read) const {
  Frame frame;
  for (auto number = unusable_.rbegin(); number != unusable_.rend(); ++number) {
    if (read_frame(*number, frame)) read(std::string_view(frame.summed).substr(8));
  }
}

}  // namespace corvan_tool
