#include "tools/salvage/page_map.h"

#include <algorithm>

#include "tools/salvage/file/record.h"

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

PageMap::PageMap(const DamagedFile& file)
    : file_(file),
      uses_(file.pages_there().count(), Use::kUnknown),
      readings_(file.pages_there().count(), 0) {}

void PageMap::mark_free() {
  PageNumber before = 0;
  PageNumber trunk = file_.first_free();
  while (trunk != 0) {
    const auto next = mark_listed(trunk);
    if (!next) {
      note(trunk, before, "the list of free pages");
      return;
    }
    before = trunk;
    trunk = *next;
  }
}

// Marks a page of the list of free pages, and the pages that it names. Returns the next page of the
// list, or 0 at its end; nothing if this page cannot be part of the list.
std::optional<PageNumber> PageMap::mark_listed(PageNumber trunk) {
  std::string bytes;
  const bool is_new = file_.is_page(trunk) && use(trunk) != Use::kFree;
  if (!is_new || !file_.read(trunk, bytes)) return std::nullopt;
  const std::uint64_t count = number_at(bytes, 4, 4);
  if (count > file_.usable() / 4 - 2) return std::nullopt;
  set_use(trunk, Use::kFree);
  for (std::size_t i = 0; i < count; ++i) {
    const auto page = static_cast<PageNumber>(number_at(bytes, 8 + 4 * i, 4));
    if (file_.is_page(page)) set_use(page, Use::kFree);
  }
  return static_cast<PageNumber>(number_at(bytes, 0, 4));
}

PageMap::Use PageMap::use(PageNumber page) const {
  if (const auto place = file_.pages_there().place_of(page)) return uses_[*place];
  const auto found = hole_uses_.find(page);
  return found == hole_uses_.end() ? Use::kUnknown : found->second;
}

void PageMap::set_use(PageNumber page, Use use) {
  if (const auto place = file_.pages_there().place_of(page)) {
    uses_[*place] = use;
  } else if (page <= file_.pages_in_file()) {
    hole_uses_[page] = use;
  }
}

bool PageMap::may_read(PageNumber page, PageNumber parent, const std::string& what) {
  const auto place = file_.pages_there().place_of(page);
  if (place && uses_[*place] != Use::kTree && readings_[*place] < kMostReadings) {
    ++readings_[*place];
    return true;
  }
  note_unread(page, parent, what);
  return false;
}

void PageMap::note_unread(PageNumber page, PageNumber parent, const std::string& what) {
  note(file_.is_page(page) && use(page) == Use::kTree ? parent : page, parent, what);
}

void PageMap::note(PageNumber page, PageNumber parent, const std::string& what) {
  const bool is_there = file_.pages_there().place_of(page).has_value();
  const bool is_named =
      is_there || (page > 0 && page <= std::max(file_.page_count(), file_.declared_pages()) &&
                   noted_missing_ <= file_.pages_there().count() + kSomePages);
  if (is_named) {
    bad_.add(page, (file_.is_page(page) ? "" : "beyond the end: ") + what);
    if (!is_there) ++noted_missing_;
  } else if (parent > 0) {
    bad_.add(parent, what + ", damaged in part");
  }
}

void PageMap::note_unknown() {
  file_.pages_there().each([this](PageNumber page) {
    if (use(page) == Use::kUnknown) note(page, 0, "not recognised");
  });
  if (file_.page_count() == file_.pages_in_file()) return;
  for (const PageRange& range :
       file_.pages_there().gaps(file_.pages_in_file() + 1, file_.page_count())) {
    bad_.add(range, "neither in the file nor in the log");
  }
}

std::uint64_t PageMap::zero_pages() const {
  auto count = static_cast<std::uint64_t>(std::count(uses_.begin(), uses_.end(), Use::kZero));
  for (const PageRange& hole : file_.pages_there().gaps(1, file_.pages_in_file())) {
    count += hole.last - hole.first + std::uint64_t{1};
  }
  return count - hole_uses_.size();
}

}  // namespace corvan_tool
