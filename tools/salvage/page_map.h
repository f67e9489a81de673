// What each page of a damaged file is used for, as far as it is known, and what is wrong with it.

#ifndef TOOLS_SALVAGE_PAGE_MAP_H_
#define TOOLS_SALVAGE_PAGE_MAP_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/salvage/bad_pages.h"
#include "tools/salvage/file/damaged_file.h"

namespace corvan_tool {

// How often a page is read because something points to it. In a sound file one pointer leads to
// each page. In a damaged one wrong pointers and old copies of pages may lead to it as well.
constexpr std::uint8_t kMostReadings = 16;

// Added to limits that depend on the file's size, for the sake of small files.
constexpr std::uint64_t kSomePages = 100;

class PageMap {
 public:
  enum class Use : std::uint8_t { kUnknown, kFree, kTree, kOverflow, kRecognised, kZero };

  // The file must live longer.
  explicit PageMap(const DamagedFile& file);

  Use use(PageNumber page) const;
  void set_use(PageNumber page, Use use);

  // Whether to read a page that `parent` points to: it exists, it has not been read as part of a
  // tree, and it has not been read kMostReadings times. Counts the reading. If not, notes it as
  // `what`.
  bool may_read(PageNumber page, PageNumber parent, const std::string& what);

  // Notes what is wrong with a page, or with its parent if there is no such page. A parent of 0
  // means none.
  void note(PageNumber page, PageNumber parent, const std::string& what);
  // Notes a page that could not be read from `parent`. If another page also points to it and it was
  // read from there, the fault is the parent's.
  void note_unread(PageNumber page, PageNumber parent, const std::string& what);
  // Notes pages that are still unknown, and those that neither the file nor the log has.
  void note_unknown();

  // In ascending order.
  std::vector<BadPages> bad_pages() const { return bad_.list(); }
  // Pages of zeros that nothing points to: free or lost.
  std::uint64_t zero_pages() const;

 private:
  const DamagedFile& file_;
  std::vector<Use> uses_;                          // by place in pages_there()
  std::vector<std::uint8_t> readings_;             // likewise
  std::unordered_map<PageNumber, Use> hole_uses_;  // of pages in holes of the file
  BadPageList bad_;
  std::uint64_t noted_missing_ = 0;  // notes in bad_ about pages that do not exist
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_PAGE_MAP_H_
