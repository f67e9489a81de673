#include "tools/salvage/page_scan.h"

#include <algorithm>
#include <string>

namespace corvan_tool {

PageScan::PageScan(const DamagedFile& file, const KnownSchema& schema, const Coverage& coverage,
                   LeafReader& rows, PageMap& pages, Progress& progress)
    : file_(file),
      schema_(schema),
      coverage_(coverage),
      rows_(rows),
      pages_(pages),
      progress_(progress) {}

void PageScan::scan_file() {
  std::string bytes;
  file_.pages_there().each([&](PageNumber number) {
    const PageMap::Use use = pages_.use(number);
    if (use != PageMap::Use::kUnknown && use != PageMap::Use::kFree) return;
    progress_.advance();
    if (file_.read(number, bytes)) scan(number, bytes);
  });
  // Only now: an overflow page may come before the page on which its row begins.
  pages_.note_unknown();
}

void PageScan::scan(PageNumber number, std::string_view bytes) {
  const bool is_free = pages_.use(number) == PageMap::Use::kFree;
  if (bytes.find_first_not_of('\0') == std::string_view::npos) {
    if (!is_free) pages_.set_use(number, PageMap::Use::kZero);
    return;
  }
  const auto page = file_.parse(number, bytes);
  if (!page) return;
  if (!is_free && page->sound) pages_.set_use(number, PageMap::Use::kRecognised);
  if (page->type == PageType::kTableLeaf) {
    scan_leaf({*page, bytes, number, kAllIds}, is_free);
  } else if (!is_table(page->type) && !is_free) {
    scan_index_page(*page, bytes);
  }
}

// The table whose shape most records of a leaf page have; nothing if none has any.
std::optional<std::size_t> PageScan::table_of(const Page& page, std::string_view bytes) const {
  std::optional<std::size_t> best;
  std::ptrdiff_t most = 0;
  for (std::size_t table = 0; table < schema_.tables.size(); ++table) {
    // Skip t_version: a single text column matches almost anything.
    if (table == schema_.versions) continue;
    const std::ptrdiff_t count =
        std::count_if(page.cells.begin(), page.cells.end(), [&](const Cell& cell) {
          return starts_with_shape(bytes, cell, schema_.tables[table].shape, Match::kExact,
                                   coverage_.tables[table].added_columns);
        });
    if (count <= most) continue;
    most = count;
    best = table;
  }
  return best;
}

// The index that a page is from, by its first entry. Null if several are possible, or if the page
// is not needed, because its table or index was read whole.
const KnownIndex* PageScan::index_of(const Page& page, std::string_view bytes) const {
  if (page.cells.empty()) return nullptr;
  const auto is_needed = [&](const KnownIndex& index) {
    return !coverage_.index_is_whole[schema_.place_of(index)] &&
           !coverage_.tables[index.table].is_whole;
  };
  const auto found =
      std::find_if(schema_.indexes.begin(), schema_.indexes.end(), [&](const KnownIndex& index) {
        return index.has_unique_shape && is_needed(index) &&
               starts_with_shape(bytes, page.cells.front(), index.shape, Match::kExact, 0);
      });
  return found == schema_.indexes.end() ? nullptr : &*found;
}

void PageScan::scan_leaf(const Leaf& leaf, bool is_free) {
  const auto table = table_of(leaf.page, leaf.bytes);
  if (!table) return;
  if (*table == schema_.sequences && (is_free || coverage_.tables[*table].is_whole)) return;
  rows_.read_unreached_leaf(*table, leaf, is_free ? Doubt::kFree : Doubt::kNone);
  if (is_free || leaf.page.sound) return;
  pages_.note(leaf.number, 0, "a page of " + schema_.tables[*table].name + ", damaged in part");
  pages_.set_use(leaf.number, PageMap::Use::kRecognised);
}

void PageScan::scan_index_page(const Page& page, std::string_view bytes) {
  const KnownIndex* const index = index_of(page, bytes);
  if (index != nullptr) rows_.read_entries(page, bytes, index);
}

void PageScan::scan_lost_commits() {
  file_.each_unusable([this](std::string_view bytes) {
    const auto page = parse_page(bytes, file_.usable(), false);
    if (!page || page->type != PageType::kTableLeaf) return;
    const auto table = table_of(*page, bytes);
    if (table) rows_.read_unreached_leaf(*table, {*page, bytes, 0, kAllIds}, Doubt::kLog);
  });
}

}  // namespace corvan_tool
