#include "tools/salvage/page_scan.h"

#include <string>

#include "tools/salvage/recognise.h"

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
  // Not earlier: an overflow page may come before the page that its row begins on.
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

void PageScan::scan_leaf(const Leaf& leaf, bool is_free) {
  const auto table = table_of_page(leaf.page, leaf.bytes, schema_, coverage_);
  if (!table) return;
  if (*table == schema_.sequences && (is_free || coverage_.tables[*table].is_whole)) return;
  rows_.read_unreached_leaf(*table, leaf, is_free ? Doubt::kFree : Doubt::kNone);
  if (is_free || leaf.page.sound) return;
  pages_.note(leaf.number, 0, "a page of " + schema_.tables[*table].name + ", damaged in part");
  pages_.set_use(leaf.number, PageMap::Use::kRecognised);
}

void PageScan::scan_index_page(const Page& page, std::string_view bytes) {
  const KnownIndex* const index = index_of_page(page, bytes, schema_, coverage_);
  if (index != nullptr) rows_.read_entries(page, bytes, index);
}

void PageScan::scan_lost_commits() {
  file_.each_unusable([this](std::string_view bytes) {
    const auto page = parse_page(bytes, file_.usable(), false);
    if (!page || page->type != PageType::kTableLeaf) return;
    const auto table = table_of_page(*page, bytes, schema_, coverage_);
    if (table) rows_.read_unreached_leaf(*table, {*page, bytes, 0, kAllIds}, Doubt::kLog);
  });
}

}  // namespace corvan_tool
