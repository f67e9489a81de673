#include "tools/salvage/file/wal.h"

#include <algorithm>

#include "tools/salvage/file/record.h"

namespace corvan_tool {

namespace {

constexpr std::string_view kWalMagic("\x37\x7f\x06\x82", 4);
constexpr std::string_view kBigEndianWalMagic("\x37\x7f\x06\x83", 4);  // for the checksums
constexpr std::size_t kWalHeader = 32;
constexpr std::size_t kFrameHeader = 24;

using FramesByPage = std::unordered_map<PageNumber, std::uint64_t>;

// Whether the log's first commit can leave the file with `committed` pages. If the file has fewer,
// the commit itself must have written at least half of the others. An empty file allows any number.
bool can_reach(PageNumber in_file, PageNumber committed, const FramesByPage& in_commit) {
  if (in_file == 0 || committed <= in_file) return true;
  const auto added = std::count_if(
      in_commit.begin(), in_commit.end(),
      [in_file](const auto& page_and_frame) { return page_and_frame.first > in_file; });
  return static_cast<PageNumber>(added) >= (committed - in_file) / 2;
}

}  // namespace

struct Wal::Frame {
  PageNumber page = 0;
  PageNumber committed = 0;  // the file's size in pages if the frame ends a commit, otherwise 0
  std::string salt;
  Checksum checksum;
  std::string summed;  // what the checksum covers: 8 bytes of the header, then the page
};

// The state of read_commits() between two frames.
struct Wal::Commits {
  PageNumber in_file = 0;
  PageNumber largest = 0;          // the largest page number so far
  PageNumber most_pages = 0;       // the file's largest size after a commit
  PageNumber last_pages = 0;       // the file's size after the last commit
  bool has_rewritten_all = false;  // a commit wrote every page
  Checksum expected;
  FramesByPage pending;  // frames of the commit that is not complete yet
};

bool is_wal(std::string_view bytes) {
  const std::string_view magic = bytes.substr(0, 4);
  return magic == kWalMagic || magic == kBigEndianWalMagic;
}

Wal::Wal(const std::string& path) : file_(path, true) {
  read_header();
}

Wal::Checksum Wal::sum(Checksum start, std::string_view bytes) const {
  const auto word = [&](std::size_t at) {
    const auto value = static_cast<std::uint32_t>(number_at(bytes, at, 4));
    return is_big_endian_ ? value : __builtin_bswap32(value);
  };
  for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
    start.first += word(at) + start.second;
    start.second += word(at + 4) + start.first;
  }
  return start;
}

void Wal::read_header() {
  std::string header;
  if (!file_.read(0, kWalHeader, header)) {
    if (file_.read(0, 4, header)) is_big_endian_ = header == kBigEndianWalMagic;
    return;
  }
  const std::string_view bytes = header;
  is_big_endian_ = bytes.substr(0, 4) == kBigEndianWalMagic;
  const Checksum found = sum({}, bytes.substr(0, 24));
  page_size_ = static_cast<std::size_t>(number_at(bytes, 8, 4));
  header_is_sound_ = is_wal(bytes) && is_page_size(page_size_) &&
                     found.first == number_at(bytes, 24, 4) &&
                     found.second == number_at(bytes, 28, 4);
  if (!header_is_sound_) return;
  salt_ = header.substr(16, 8);
  start_ = found;
}

std::uint64_t Wal::place_of(std::uint64_t frame) const {
  return kWalHeader + frame * (kFrameHeader + page_size_);
}

bool Wal::read_frame(std::uint64_t number, Frame& frame) const {
  std::string bytes;
  if (!file_.read(place_of(number), kFrameHeader + page_size_, bytes)) return false;
  frame.page = static_cast<PageNumber>(number_at(bytes, 0, 4));
  frame.committed = static_cast<PageNumber>(number_at(bytes, 4, 4));
  frame.salt = bytes.substr(8, 8);
  frame.checksum.first = static_cast<std::uint32_t>(number_at(bytes, 16, 4));
  frame.checksum.second = static_cast<std::uint32_t>(number_at(bytes, 20, 4));
  frame.summed = bytes.substr(0, 8) + bytes.substr(kFrameHeader);
  return frame.page != 0;
}

PageNumber Wal::read_frames(std::size_t page_size, PageNumber pages_in_file) {
  page_size_ = page_size;
  if (file_.size() <= kWalHeader) {
    summary_.cut = file_.size() % kWalHeader != 0;
    return pages_in_file;
  }
  const std::uint64_t frame_size = kFrameHeader + page_size_;
  summary_.frames = (file_.size() - kWalHeader) / frame_size;
  summary_.cut = (file_.size() - kWalHeader) % frame_size != 0;
  Commits commits;
  commits.in_file = commits.largest = commits.last_pages = pages_in_file;
  commits.expected = start_;
  find_unusable(header_is_sound_ ? read_commits(commits) : 0);
  return commits.last_pages;
}

bool Wal::continues_log(std::uint64_t number, Frame& frame, Checksum& expected) const {
  if (!read_frame(number, frame) || frame.salt != salt_) return false;
  expected = sum(expected, frame.summed);
  return expected == frame.checksum;
}

// Returns the first frame that does not continue the log.
std::uint64_t Wal::read_commits(Commits& commits) {
  Frame frame;
  std::uint64_t number = 0;
  for (; number < summary_.frames && continues_log(number, frame, commits.expected); ++number) {
    commits.pending[frame.page] = number;
    commits.largest = std::max(commits.largest, frame.page);
    if (frame.committed != 0) add_commit(number, frame.committed, commits);
  }
  // A file shrinks only if a commit rewrites every page.
  const bool has_shrunk = summary_.used > 0 && commits.in_file > commits.most_pages;
  if (has_shrunk && !commits.has_rewritten_all) summary_.fits = false;
  return number;
}

void Wal::add_commit(std::uint64_t last_frame, PageNumber pages, Commits& commits) {
  if (summary_.used == 0 && !can_reach(commits.in_file, pages, commits.pending)) {
    summary_.fits = false;
  }
  commits.most_pages = std::max(commits.most_pages, pages);
  commits.has_rewritten_all = commits.has_rewritten_all || commits.pending.size() >= pages;
  commits.last_pages = std::min(pages, commits.largest);
  for (const auto& [page, frame] : commits.pending) newest_[page] = frame;
  // clear() would take as long as for the largest commit so far.
  commits.pending = {};
  summary_.used = last_frame + 1;
}

void Wal::each_frame_from(std::uint64_t first,
                          const std::function<void(std::uint64_t number)>& visit) const {
  const std::uint64_t size = kFrameHeader + page_size_;
  std::uint64_t next = first;
  for (const auto& [begin, end] : file_.data()) {
    if (end <= kWalHeader) continue;
    const std::uint64_t begins_in = begin < kWalHeader ? 0 : (begin - kWalHeader) / size;
    const std::uint64_t ends_in = (end - 1 - kWalHeader) / size;
    for (next = std::max(next, begins_in); next <= ends_in && next < summary_.frames; ++next) {
      visit(next);
    }
  }
}

// A frame's checksum continues the one stored in the frame before it. So an intact frame after a
// damaged one can be told from noise and from old frames that the log has not overwritten yet.
bool Wal::is_intact(std::uint64_t number, Frame& frame) {
  Frame before;
  before.checksum = start_;
  if (number > 0 && !read_frame(number - 1, before)) return false;
  if (!read_frame(number, frame)) return false;
  if (salt_.empty()) salt_ = frame.salt;
  return frame.salt == salt_ && sum(before.checksum, frame.summed) == frame.checksum;
}

void Wal::find_unusable(std::uint64_t broken) {
  Frame frame;
  bool has_lost_commit = false;
  each_frame_from(summary_.used, [&](std::uint64_t number) {
    if (!is_intact(number, frame)) return;
    unusable_.push_back(number);
    has_lost_commit = has_lost_commit || (number >= broken && frame.committed != 0);
  });
  summary_.damaged = has_lost_commit || (!header_is_sound_ && summary_.frames > 0);
  // Frames without a commit after the damage belong to a transaction that never ended.
  if (!summary_.damaged) unusable_.clear();
  summary_.unusable = unusable_.size();
}

void Wal::each_page(const std::function<void(PageNumber page)>& visit) const {
  for (const auto& [page, frame] : newest_) visit(page);
}

bool Wal::read(PageNumber page, std::string& bytes) const {
  return file_.read(place_of(newest_.at(page)) + kFrameHeader, page_size_, bytes);
}

void Wal::each_unusable(
    const std::function<void(PageNumber page, const std::string& bytes)>& read) const {
  Frame frame;
  for (auto number = unusable_.rbegin(); number != unusable_.rend(); ++number) {
    if (read_frame(*number, frame)) read(frame.page, frame.summed.substr(8));
  }
}

std::string Wal::beginning_of_file(std::size_t size) const {
  std::string bytes;
  const auto first = newest_.find(1);
  if (first == newest_.end()) return bytes;
  file_.read(place_of(first->second) + kFrameHeader, size, bytes);
  return bytes;
}

}  // namespace corvan_tool
