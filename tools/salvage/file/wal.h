// The write-ahead log of a damaged file.

#ifndef TOOLS_SALVAGE_FILE_WAL_H_
#define TOOLS_SALVAGE_FILE_WAL_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/salvage/file/page.h"
#include "tools/store/regular_file.h"

namespace corvan_tool {

// The counts and faults of a log.
struct WalSummary {
  std::uint64_t frames = 0;    // all of them, including old ones and those in holes of the file
  std::uint64_t used = 0;      // frames up to the last commit that SQLite would see
  std::uint64_t unusable = 0;  // intact frames after the damage, whose commits are lost
  bool damaged = false;        // there are unusable frames, or the log's header is damaged
  bool cut = false;            // the log ends within its header or within a frame
  bool fits = true;            // the log's page counts are possible for this file
};

// A log is a header and a sequence of frames, each with one page. The last frame of a commit states
// the file's size in pages. Every frame has a checksum over everything before it.
class Wal {
 public:
  // Reads the log's header. If the log is missing or the path is empty, the log counts as empty.
  // Throws ToolError if the log cannot be opened.
  explicit Wal(const std::string& path);

  // The page size in the log's header; 0 unless the header's checksum is right.
  std::size_t page_size() const { return header_is_sound_ ? page_size_ : 0; }

  // Reads the frames. Returns the number of pages after the last commit, which may claim pages that
  // are neither in the file nor in the log.
  PageNumber read_frames(std::size_t page_size, PageNumber pages_in_file);

  const WalSummary& summary() const { return summary_; }

  bool has(PageNumber page) const { return newest_.count(page) != 0; }
  // Calls `visit` with each page that a commit wrote, in any order.
  void each_page(const std::function<void(PageNumber page)>& visit) const;
  // Reads the newest committed content of a page that the log has.
  bool read(PageNumber page, std::string& bytes) const;

  // Calls `read` with the pages of lost commits, newest first. A later lost commit may have changed
  // or deleted their content.
  void each_unusable(
      const std::function<void(PageNumber page, const std::string& bytes)>& read) const;

  // The first bytes of page 1 as the last commit left them; empty if no commit wrote the page.
  std::string beginning_of_file(std::size_t size) const;

  bool has_changed() const { return file_.has_changed(); }

 private:
  struct Frame;
  struct Commits;
  struct Checksum {
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    bool operator==(const Checksum& other) const {
      return first == other.first && second == other.second;
    }
  };

  void read_header();
  std::uint64_t place_of(std::uint64_t frame) const;
  Checksum sum(Checksum start, std::string_view bytes) const;
  bool read_frame(std::uint64_t number, Frame& frame) const;
  bool continues_log(std::uint64_t number, Frame& frame, Checksum& expected) const;
  std::uint64_t read_commits(Commits& commits);
  void add_commit(std::uint64_t last_frame, PageNumber pages, Commits& commits);
  void find_unusable(std::uint64_t broken);
  bool is_intact(std::uint64_t number, Frame& frame);
  // Skips frames in holes of the file.
  void each_frame_from(std::uint64_t first,
                       const std::function<void(std::uint64_t number)>& visit) const;

  const ReadOnlyFile file_;
  bool header_is_sound_ = false;
  bool is_big_endian_ = false;
  std::size_t page_size_ = 0;
  std::string salt_;
  Checksum start_;  // of the header: the first frame's checksum continues it
  WalSummary summary_;
  std::unordered_map<PageNumber, std::uint64_t> newest_;  // page to frame with its newest content
  std::vector<std::uint64_t> unusable_;                   // frames in ascending order
};

// Whether the bytes begin like a log.
bool is_wal(std::string_view bytes);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_WAL_H_
