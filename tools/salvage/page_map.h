// What each page of a damaged file is used for, as far as known, and what is wrong with it.

#ifndef TOOLS_SALVAGE_PAGE_MAP_H_
#define TOOLS_SALVAGE_PAGE_MAP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/salvage/file/damaged_file.h"

namespace corvan_tool {

// Consecutive pages with the same fault.
struct BadPages {
  PageNumber first = 0;
  PageNumber last = 0;
  std::string what;
};

// Collects the faults of pages. If a page has several, the first one that was added is listed.
class BadPageList {
 public:
  void add(PageNumber page, const std::string& what);
  void add(const PageRange& range, const std::string& what);

  // In ascending order.
  std::vector<BadPages> list() const;

 private:
  struct Note {
    PageRange range;
    std::uint32_t text = 0;  // index in texts_
  };
  void tidy();

  std::vector<Note> notes_;
  std::size_t tidied_ = 0;  // how many notes the last tidy() left
  std::vector<std::string> texts_;
  std::map<std::string, std::uint32_t> numbers_;  // text to index in texts_
};

// How often a page may be read because something points to it. In a sound file, one pointer leads
// to each page. In a damaged file, wrong pointers and old copies of pages can lead to it as well.
constexpr std::uint8_t kMostReadings = 16;

// Added to limits that are proportional to the file's size, so that small files have room too.
constexpr std::uint64_t kSomePages = 100;

class PageMap {
 public:
  enum class Use : std::uint8_t { kUnknown, kFree, kTree, kOverflow, kRecognised, kZero };

  // The file must live longer.
  explicit PageMap(const DamagedFile& file);

  // Marks the pages that the file lists as free, up to the first fault in the list.
  void mark_free();

  Use use(PageNumber page) const;
  void set_use(PageNumber page, Use use);

  // Whether to read a page that `parent` points to. If so, counts the reading. Otherwise notes the
  // page as `what`: it does not exist, belongs to a tree that was read, or was read kMostReadings
  // times.
  bool may_read(PageNumber page, PageNumber parent, const std::string& what);

  // Notes what is wrong with a page, or with its parent if there is no such page. A parent of 0
  // means none.
  void note(PageNumber page, PageNumber parent, const std::string& what);
  // Notes a page that could not be read from `parent`. If the page already belongs to a tree, the
  // pointer is wrong, and the parent is noted instead.
  void note_unread(PageNumber page, PageNumber parent, const std::string& what);
  // Notes pages whose use is still unknown, and pages that neither the file nor the log has.
  void note_unknown();

  // In ascending order.
  std::vector<BadPages> bad_pages() const { return bad_.list(); }
  // Pages of zeros that nothing points to: free or lost.
  std::uint64_t zero_pages() const;

 private:
  std::optional<PageNumber> mark_listed(PageNumber trunk);

  const DamagedFile& file_;
  std::vector<Use> uses_;                          // by place in pages_there()
  std::vector<std::uint8_t> readings_;             // likewise
  std::unordered_map<PageNumber, Use> hole_uses_;  // of pages in holes of the file
  BadPageList bad_;
  std::uint64_t noted_missing_ = 0;  // notes in bad_ about pages that do not exist
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_PAGE_MAP_H_
