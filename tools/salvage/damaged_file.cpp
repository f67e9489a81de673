#include "tools/salvage/damaged_file.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "tools/store/file_names.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr std::string_view kMagic("SQLite format 3\0", 16);
constexpr std::string_view kLogMagic("\x37\x7f\x06\x82", 4);
constexpr std::string_view kBigEndianLogMagic("\x37\x7f\x06\x83", 4);
constexpr std::size_t kLogHeader = 32;
constexpr std::size_t kFrameHeader = 24;
constexpr std::size_t kStorePage = 4096;
constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;
constexpr std::size_t kLeastUsable = 480;  // of a page

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

using ReadPage = std::function<bool(PageNumber page, std::string& bytes)>;

// The share of the pages that are sound when so much of each is usable. Cells and free space fill
// a page to its last byte, so hardly one is when the size is another.
double sound_share(PageNumber pages, std::size_t usable, const ReadPage& read) {
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

double sound_share(const ReadOnlyFile& file, std::size_t page_size) {
  const auto pages =
      static_cast<PageNumber>(std::min<std::uint64_t>(file.size() / page_size, UINT32_MAX - 1));
  return sound_share(pages, page_size, [&](PageNumber page, std::string& bytes) {
    return file.read((page - std::uint64_t{1}) * page_size, page_size, bytes);
  });
}

// The size by which most pages are sound; `stated` unless another is better.
std::size_t guessed_page_size(const ReadOnlyFile& file, std::size_t stated) {
  std::size_t best = stated;
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

// Whether a file of `in_file` pages and the first commit of its log can have so many pages: the
// commit itself adds those that the file does not have. Of a file without a page nothing is known.
bool reaches(PageNumber in_file, PageNumber committed,
             const std::unordered_map<PageNumber, std::uint64_t>& in_commit) {
  if (in_file == 0 || committed <= in_file) return true;
  const auto added = std::count_if(
      in_commit.begin(), in_commit.end(),
      [in_file](const auto& page_and_frame) { return page_and_frame.first > in_file; });
  return static_cast<PageNumber>(added) >= (committed - in_file) / 2;
}

// The log's name. Throws ToolError when something else than a file has it.
std::string log_of(const std::string& path) {
  std::string log = path + kLogSuffix;
  require_regular_or_missing(log, "; move it away and try again");
  return log;
}

}  // namespace

struct DamagedFile::Frame {
  PageNumber page = 0;
  PageNumber committed =
      0;  // the file's pages after the commit that this frame ends; 0: it ends none
  std::string salt;
  Checksum checksum;
  std::string summed;  // what the checksum is of
};

// A log of no name is one that is not there.
DamagedFile::DamagedFile(const std::string& path, bool with_log)
    : main_(path, with_log), wal_(with_log ? log_of(path) : "", true) {
  refuse_log(path);
  std::string header;
  if (!main_.read(0, kFileHeader, header)) header.clear();
  read_log_header();
  find_page_size(header);
  const std::uint64_t pages = (main_.size() + page_size_ - 1) / page_size_;
  pages_in_file_ = static_cast<PageNumber>(std::min<std::uint64_t>(pages, UINT32_MAX - 1));
  page_count_ = pages_in_file_;
  read_log();
  find_pages();
  read_header();
}

void DamagedFile::refuse_log(const std::string& path) const {
  std::string magic;
  if (!main_.read(0, 4, magic) || (magic != kLogMagic && magic != kBigEndianLogMagic)) return;
  throw ToolError(path +
                  ": a write-ahead log; name the file beside it, without -wal at its end, even "
                  "where that file is gone");
}

// A log's header has a checksum, so it is believed before the file's.
void DamagedFile::find_page_size(std::string_view header) {
  const std::size_t stated = page_size_in(header);
  page_size_ = log_page_size_;
  if (page_size_ == 0) page_size_ = guessed_page_size(main_, stated == 0 ? kStorePage : stated);
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
  const std::string_view magic = std::string_view(header).substr(0, 4);
  log_is_big_endian_ = magic == kBigEndianLogMagic;
  const Checksum found = sum({}, std::string_view(header).substr(0, 24));
  const auto size = static_cast<std::size_t>(number_at(header, 8, 4));
  log_header_is_sound_ = (magic == kLogMagic || log_is_big_endian_) && is_page_size(size) &&
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
  if (wal_.size() <= kLogHeader) {
    log_.cut = wal_.size() % kLogHeader != 0;
    return;
  }
  const std::uint64_t frame_size = kFrameHeader + page_size_;
  log_.frames = (wal_.size() - kLogHeader) / frame_size;
  log_.cut = (wal_.size() - kLogHeader) % frame_size != 0;
  const std::uint64_t broken = log_header_is_sound_ ? read_commits() : 0;
  find_unusable(log_.used, broken);
}

// Returns the first frame that does not continue the log.
std::uint64_t DamagedFile::read_commits() {
  std::unordered_map<PageNumber, std::uint64_t> uncommitted;
  const PageNumber in_file = page_count_;
  PageNumber largest = in_file;
  PageNumber most_pages = 0;
  bool is_rewritten = false;
  Checksum expected = log_start_;
  Frame frame;
  std::uint64_t number = 0;
  for (; number < log_.frames && read_frame(number, frame) && frame.salt == log_salt_; ++number) {
    expected = sum(expected, frame.summed);
    if (expected.first != frame.checksum.first || expected.second != frame.checksum.second) break;
    uncommitted[frame.page] = number;
    largest = std::max(largest, frame.page);
    if (frame.committed == 0) continue;
    if (log_.used == 0 && !reaches(in_file, frame.committed, uncommitted)) log_.fits = false;
    most_pages = std::max(most_pages, frame.committed);
    is_rewritten = is_rewritten || uncommitted.size() >= frame.committed;
    for (const auto& [page, at] : uncommitted) in_log_[page] = at;
    uncommitted = {};  // clear() would take as long as the largest commit's, each time
    log_.used = number + 1;
    page_count_ = std::min(frame.committed, largest);
  }
  // Only a commit that writes every page anew makes a file smaller.
  if (log_.used > 0 && in_file > most_pages && !is_rewritten) log_.fits = false;
  return number;
}

void DamagedFile::each_frame_there(std::uint64_t from,
                                   const std::function<void(std::uint64_t number)>& visit) const {
  const std::uint64_t size = kFrameHeader + page_size_;
  std::uint64_t next = from;
  for (const auto& [begin, end] : wal_.data()) {
    if (end <= kLogHeader) continue;
    const std::uint64_t first = begin < kLogHeader ? 0 : (begin - kLogHeader) / size;
    const std::uint64_t last = (end - 1 - kLogHeader) / size;
    for (next = std::max(next, first); next <= last && next < log_.frames; ++next) visit(next);
  }
}

// A frame's checksum continues that of the frame before, as it stands in the log. So a frame behind
// a damaged one can still be told from noise and from frames of the log's earlier rounds.
void DamagedFile::find_unusable(std::uint64_t from, std::uint64_t broken) {
  Frame frame;
  Frame before;
  bool committed = false;
  if (!log_header_is_sound_) {
    std::string header;
    if (wal_.read(0, 4, header)) log_is_big_endian_ = header == kBigEndianLogMagic;
  }
  each_frame_there(from, [&](std::uint64_t number) {
    before.checksum = log_start_;
    if (number > 0 && !read_frame(number - 1, before)) return;
    if (!read_frame(number, frame)) return;
    if (log_salt_.empty()) log_salt_ = frame.salt;
    const Checksum found = sum(before.checksum, frame.summed);
    if (frame.salt != log_salt_ || found.first != frame.checksum.first ||
        found.second != frame.checksum.second) {
      return;
    }
    unusable_.push_back(number);
    committed = committed || (number >= broken && frame.committed != 0);
  });
  log_.damaged = committed || (!log_header_is_sound_ && log_.frames > 0);
  // Without a commit behind the break they are what a transaction wrote that never ended.
  if (!log_.damaged) unusable_.clear();
  log_.unusable = unusable_.size();
}

void DamagedFile::find_pages() {
  std::vector<PageRange> ranges;
  for (const auto& [begin, end] : main_.data()) {
    const std::uint64_t first = begin / page_size_ + 1;
    const std::uint64_t last = std::min<std::uint64_t>((end - 1) / page_size_ + 1, page_count_);
    if (first > last) break;
    ranges.push_back({static_cast<PageNumber>(first), static_cast<PageNumber>(last)});
  }
  for (const auto& [page, frame] : in_log_) {
    if (page <= page_count_) ranges.push_back({page, page});
  }
  there_ = PageSet(std::move(ranges));
}

void DamagedFile::read_header() {
  std::string first;
  if (!read(1, first)) return;
  const std::size_t size = page_size_in(first);
  if (size == 0) return;
  const auto reserved = static_cast<std::size_t>(static_cast<unsigned char>(first[20]));
  find_usable(reserved);
  header_is_sound_ = std::string_view(first).substr(0, kMagic.size()) == kMagic &&
                     size == page_size_ && usable_ == page_size_ - reserved;
  first_free_ = static_cast<PageNumber>(number_at(first, 32, 4));
  // Valid when the same change wrote it.
  if (number_at(first, 24, 4) == number_at(first, 92, 4)) {
    declared_pages_ = static_cast<PageNumber>(number_at(first, 28, 4));
  }
}

// What the file says to be reserved at each page's end is believed unless more pages are sound
// when nothing is.
void DamagedFile::find_usable(std::size_t reserved) {
  if (reserved == 0 || page_size_ - reserved < kLeastUsable) return;
  const auto share = [this](std::size_t usable) {
    return sound_share(page_count_, usable,
                       [this](PageNumber page, std::string& bytes) { return read(page, bytes); });
  };
  if (share(page_size_ - reserved) >= share(page_size_)) usable_ = page_size_ - reserved;
}

bool DamagedFile::read(PageNumber page, std::string& bytes) const {
  if (page == 0 || page > page_count_) return false;
  const auto in_log = in_log_.find(page);
  if (in_log != in_log_.end()) {
    const std::uint64_t frame = in_log->second * (kFrameHeader + page_size_);
    return wal_.read(kLogHeader + frame + kFrameHeader, page_size_, bytes);
  }
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

void DamagedFile::each_unusable(const std::function<void(std::string_view bytes)>& read) const {
  Frame frame;
  for (auto number = unusable_.rbegin(); number != unusable_.rend(); ++number) {
    if (read_frame(*number, frame)) read(std::string_view(frame.summed).substr(8));
  }
}

}  // namespace corvan_tool
