#include "tools/salvage/page_map.h"

#include <algorithm>

namespace corvan_tool {

PageMap::PageMap(const DamagedFile& file)
    : file_(file),
      uses_(file.pages_there().count(), Use::kUnknown),
      readings_(file.pages_there().count(), 0) {}

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
