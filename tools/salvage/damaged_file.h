// The pages of a damaged file as its last commit left them.

#ifndef TOOLS_SALVAGE_DAMAGED_FILE_H_
#define TOOLS_SALVAGE_DAMAGED_FILE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/salvage/page.h"
#include "tools/salvage/page_map.h"
#include "tools/store/regular_file.h"

namespace corvan_tool {

// The file with the committed pages of its write-ahead log laid over it, as SQLite would see it
// if it could.
class DamagedFile {
 public:
  // What the log had.
  struct Log {
    std::uint64_t frames = 0;    // pages in it, of whatever age, holes included
    std::uint64_t used = 0;      // up to the last commit that SQLite would see
    std::uint64_t unusable = 0;  // whole ones of commits beyond a damaged one
    bool damaged = false;        // there are such, or the log's header is gone
    bool cut = false;            // it ends within its header or within a page
    bool fits = true;            // its sizes can be those of this file
  };

  // The file may be missing when its log is there. Without the log the file is taken as it stands.
  // Throws ToolError when the file or its log cannot be opened, or the file is a log itself.
  DamagedFile(const std::string& path, bool with_log);

  // The pages that the file or its log holds bytes of, up to page_count(). What the file has beside
  // them is holes; what page_count() has beside these is not there at all.
  const PageSet& pages_there() const { return there_; }
  // The pages that the file itself reaches, holes included.
  PageNumber pages_in_file() const { return std::min(pages_in_file_, page_count_); }

  std::size_t page_size() const { return page_size_; }
  std::size_t usable() const { return usable_; }
  // The last commit of the log can claim pages that are nowhere.
  PageNumber page_count() const { return page_count_; }
  // The pages that the file says it has; 0 when it does not say.
  PageNumber declared_pages() const { return declared_pages_; }
  // Whether the first 100 bytes are those of a database.
  bool header_is_sound() const { return header_is_sound_; }
  // The first page of the list of free pages, 0 for none.
  PageNumber first_free() const { return first_free_; }
  const Log& log() const { return log_; }

  // False when the page is beyond the end or cannot be read. What is cut off the last page is
  // zeros.
  bool read(PageNumber page, std::string& bytes) const;
  // The bytes of the page that are there: less than its size where the file is cut off within it.
  std::size_t held(PageNumber page) const;
  bool is_in_log(PageNumber page) const { return in_log_.count(page) != 0; }

  // The log's unusable pages, the newest first. What they held once may have been changed or
  // deleted by a commit that is lost.
  void each_unusable(const std::function<void(std::string_view bytes)>& read) const;

  // Whether file or log were written to since they were opened.
  bool has_changed() const { return main_.has_changed() || wal_.has_changed(); }

 private:
  struct Frame;
  struct Checksum {
    std::uint32_t first = 0;
    std::uint32_t second = 0;
  };

  void refuse_log(const std::string& path) const;
  void find_page_size(std::string_view header);
  void find_usable(std::size_t reserved);
  void read_log_header();
  void read_log();
  std::uint64_t read_commits();
  void find_unusable(std::uint64_t from, std::uint64_t broken);
  // Calls `visit` with the log's frames from this one on that do not lie in holes.
  void each_frame_there(std::uint64_t from,
                        const std::function<void(std::uint64_t number)>& visit) const;
  bool read_frame(std::uint64_t number, Frame& frame) const;
  void read_header();
  void find_pages();
  Checksum sum(Checksum start, std::string_view bytes) const;

  const ReadOnlyFile main_;
  const ReadOnlyFile wal_;
  std::size_t page_size_ = 0;
  std::size_t usable_ = 0;
  PageNumber page_count_ = 0;
  PageNumber pages_in_file_ = 0;
  PageSet there_;
  PageNumber declared_pages_ = 0;
  PageNumber first_free_ = 0;
  bool header_is_sound_ = false;

  Log log_;
  bool log_header_is_sound_ = false;
  bool log_is_big_endian_ = false;
  std::size_t log_page_size_ = 0;
  std::string log_salt_;
  Checksum log_start_;
  std::unordered_map<PageNumber, std::uint64_t> in_log_;  // where in the log its newest content is
  std::vector<std::uint64_t> unusable_;                   // frames, in order
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_DAMAGED_FILE_H_
