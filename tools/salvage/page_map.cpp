#include "tools/salvage/page_map.h"

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
  std::uint64_t next = first;  // behind what was looked at
  for (const PageRange& range : ranges_) {
    if (range.first > last) break;
    if (range.first > next) result.push_back({static_cast<PageNumber>(next), range.first - 1});
    next = std::max(next, range.last + std::uint64_t{1});
  }
  if (next <= last) result.push_back({static_cast<PageNumber>(next), last});
  return result;
}

void BadPageList::add(PageNumber page, const std::string& what) {
  add(PageRange{page, page}, what);
}

void BadPageList::add(const PageRange& range, const std::string& what) {
  const auto [text, is_new] = places_.try_emplace(what, static_cast<std::uint32_t>(texts_.size()));
  if (is_new) texts_.push_back(what);
  notes_.push_back({range, text->second});
  constexpr std::size_t kFew = 1000;
  // Many wrong numbers in a file can name the same page.
  if (notes_.size() > 2 * tidied_ + kFew) tidy();
}

void BadPageList::tidy() {
  std::stable_sort(notes_.begin(), notes_.end(),
                   [](const Note& a, const Note& b) { return a.range.first < b.range.first; });
  notes_.erase(std::unique(notes_.begin(), notes_.end(),
                           [](const Note& a, const Note& b) {
                             return a.range.first == b.range.first && a.range.last == b.range.last;
                           }),
               notes_.end());
  tidied_ = notes_.size();
}

std::vector<BadPages> BadPageList::list() const {
  std::vector<Note> notes = notes_;
  std::stable_sort(notes.begin(), notes.end(),
                   [](const Note& a, const Note& b) { return a.range.first < b.range.first; });
  std::vector<BadPages> result;
  std::uint64_t next = 0;  // behind what is in the result
  const auto append = [&](std::uint64_t first, std::uint64_t last, const std::string& what) {
    if (first > last) return;
    if (!result.empty() && first == next && what == result.back().what) {
      result.back().last = static_cast<PageNumber>(last);
    } else {
      result.push_back({static_cast<PageNumber>(first), static_cast<PageNumber>(last), what});
    }
    next = last + 1;
  };
  for (const Note& note : notes) {
    append(std::max<std::uint64_t>(note.range.first, next), note.range.last, texts_[note.what]);
  }
  return result;
}

}  // namespace corvan_tool
