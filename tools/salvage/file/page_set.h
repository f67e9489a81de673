// Sets of pages, stored as ranges: a damaged header or log can claim any number of pages, and
// memory must not grow with it.

#ifndef TOOLS_SALVAGE_FILE_PAGE_SET_H_
#define TOOLS_SALVAGE_FILE_PAGE_SET_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "tools/salvage/file/page.h"

namespace corvan_tool {

struct PageRange {
  PageNumber first = 0;
  PageNumber last = 0;
};

// Each page of the set has a place, its index among the set's pages in ascending order.
class PageSet {
 public:
  PageSet() = default;
  // The ranges may overlap and come in any order.
  explicit PageSet(std::vector<PageRange> ranges);

  std::size_t count() const { return count_; }
  // Nothing if the page is not in the set.
  std::optional<std::size_t> place_of(PageNumber page) const;

  // In ascending order, with gaps between them.
  const std::vector<PageRange>& ranges() const { return ranges_; }
  // The ranges from `first` to `last` that are not in the set.
  std::vector<PageRange> gaps(PageNumber first, PageNumber last) const;

  // Calls `visit` with each page in ascending order.
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
  std::vector<std::size_t> before_;  // by range: the number of pages in the ranges before it
  std::size_t count_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_PAGE_SET_H_
