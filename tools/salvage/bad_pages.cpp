#include "tools/salvage/bad_pages.h"

#include <algorithm>

namespace corvan_tool {

void BadPageList::add(PageNumber page, const std::string& what) {
  add(PageRange{page, page}, what);
}

void BadPageList::add(const PageRange& range, const std::string& what) {
  const auto [number, is_new] =
      numbers_.try_emplace(what, static_cast<std::uint32_t>(texts_.size()));
  if (is_new) texts_.push_back(what);
  notes_.push_back({range, number->second});
  constexpr std::size_t kFew = 1000;
  // Many wrong numbers in a file can point to the same page, so duplicates are removed early.
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
  std::uint64_t next = 0;  // the first page that is not in the result yet
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
    append(std::max<std::uint64_t>(note.range.first, next), note.range.last, texts_[note.text]);
  }
  return result;
}

}  // namespace corvan_tool
