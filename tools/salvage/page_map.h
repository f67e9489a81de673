// Which pages of a damaged file are there. A number in a header or a log can claim any number of
// pages; what is kept for each page is kept for those that are there alone.

#ifndef TOOLS_SALVAGE_PAGE_MAP_H_
#define TOOLS_SALVAGE_PAGE_MAP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/page.h"

namespace corvan_tool {

struct PageRange {
  PageNumber first = 0;
  PageNumber last = 0;
};

// A set of pages, which have places in it from 0 on, in order.
class PageSet {
 public:
  PageSet() = default;
  // Of ranges in any order, which may overlap.
  explicit PageSet(std::vector<PageRange> ranges);

  std::size_t count() const { return count_; }
  std::optional<std::size_t> place_of(PageNumber page) const;

  // Apart from each other, and in order.
  const std::vector<PageRange>& ranges() const { return ranges_; }
  // The ranges from `first` to `last` that are not in the set.
  std::vector<PageRange> gaps(PageNumber first, PageNumber last) const;

  // Calls `visit` with each page, in order.
  template <typename Visit>
  void each(const Visit& visit) const {
    for (const PageRange& range : ranges_) {
      for (std::uint64_t page = range.first; page <= range.last; ++page) {
        visit(static_cast<PageNumber>(page));
      }
    }
  }

 private:
  std::vector<PageRange> ranges_;
  std::vector<std::size_t> before_;  // how many pages come before each range
  std::size_t count_ = 0;
};

// Pages one after the other that are bad for the same reason.
struct BadPages {
  PageNumber first = 0;
  PageNumber last = 0;
  std::string what;
};

// What is wrong with pages. Of several faults of a page the first that was added counts.
class BadPageList {
 public:
  void add(PageNumber page, const std::string& what);
  void add(const PageRange& range, const std::string& what);

  // In order.
  std::vector<BadPages> list() const;

 private:
  struct Note {
    PageRange range;
    std::uint32_t what = 0;  // its place in texts_
  };
  void tidy();

  std::vector<Note> notes_;
  std::size_t tidied_ = 0;  // notes left by the last tidy()
  std::vector<std::string> texts_;
  std::map<std::string, std::uint32_t> places_;  // of the texts
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_PAGE_MAP_H_
