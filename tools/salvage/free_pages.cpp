#include "tools/salvage/free_pages.h"

#include <optional>
#include <string>
#include <string_view>

#include "tools/salvage/file/record.h"

namespace corvan_tool {

namespace {

// Marks a page of the list and the pages that it names. Nothing if it cannot be such a page,
// otherwise the next one, or 0.
std::optional<PageNumber> mark_listed(const DamagedFile& file, PageNumber trunk, PageMap& pages) {
  std::string bytes;
  const bool is_new = file.is_page(trunk) && pages.use(trunk) != PageMap::Use::kFree;
  if (!is_new || !file.read(trunk, bytes)) return std::nullopt;
  const std::uint64_t count = number_at(bytes, 4, 4);
  if (count > file.usable() / 4 - 2) return std::nullopt;
  pages.set_use(trunk, PageMap::Use::kFree);
  for (std::size_t i = 0; i < count; ++i) {
    const auto page = static_cast<PageNumber>(number_at(bytes, 8 + 4 * i, 4));
    if (file.is_page(page)) pages.set_use(page, PageMap::Use::kFree);
  }
  return static_cast<PageNumber>(number_at(bytes, 0, 4));
}

}  // namespace

void mark_free_pages(const DamagedFile& file, PageMap& pages) {
  PageNumber before = 0;
  PageNumber trunk = file.first_free();
  while (trunk != 0) {
    const auto next = mark_listed(file, trunk, pages);
    if (!next) {
      pages.note(trunk, before, "the list of free pages");
      return;
    }
    before = trunk;
    trunk = *next;
  }
}

}  // namespace corvan_tool
