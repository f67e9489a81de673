#include "tools/salvage/file/page_set.h"

#include <algorithm>

namespace corvan_tool {

PageSet::PageSet(std::vector<PageRange> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const PageRange& a, const PageRange& b) { return a.first < b.first; });
  for (const PageRange& range : ranges) {
    if (!ranges_.empty() && range.first <= ranges_.back().last + std::uint64_t{1}) {
      ranges_.back().last = std::max(ranges_.back().last, range.last);
    } else {
      ranges_.push_back(range);
    }
  }
  for (const PageRange& range : ranges_) {
    before_.push_back(count_);
    count_ += static_cast<std::size_t>(range.last - range.first) + 1;
  }
}

std::optional<std::size_t> PageSet::place_of(PageNumber page) const {
  const auto after = std::upper_bound(
      ranges_.begin(), ranges_.end(), page,
      [](PageNumber wanted, const PageRange& range) { return wanted < range.first; });
  if (after == ranges_.begin() || page > (after - 1)->last) return std::nullopt;
  const auto range = static_cast<std::size_t>(after - 1 - ranges_.begin());
  return before_[range] + (page - ranges_[range].first);
}

std::vector<PageRange> PageSet::gaps(PageNumber first, PageNumber last) const {
  std::vector<PageRange> result;
  std::uint64_t next = first;  // the first page that was not compared yet
  for (const PageRange& range : ranges_) {
    if (range.first > last) break;
    if (range.first > next) result.push_back({static_cast<PageNumber>(next), range.first - 1});
    next = std::max(next, range.last + std::uint64_t{1});
  }
  if (next <= last) result.push_back({static_cast<PageNumber>(next), last});
  return result;
}

}  // namespace corvan_tool
