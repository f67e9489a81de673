// Recognises pages that no tree leads to, by the shape of their records, and reads their rows.

#ifndef TOOLS_SALVAGE_PAGE_SCAN_H_
#define TOOLS_SALVAGE_PAGE_SCAN_H_

#include <cstddef>
#include <optional>
#include <string_view>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/damaged_file.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/leaf_reader.h"
#include "tools/salvage/page_map.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

class PageScan {
 public:
  // The arguments must live longer.
  PageScan(const DamagedFile& file, const KnownSchema& schema, const Coverage& coverage,
           LeafReader& rows, PageMap& pages, Progress& progress);

  // Reads the free pages and those that are still unknown.
  void scan_file();
  // Reads the log's pages of lost commits.
  void scan_lost_commits();

 private:
  void scan(PageNumber number, std::string_view bytes);
  void scan_leaf(const Leaf& leaf, bool is_free);
  std::optional<std::size_t> table_of(const Page& page, std::string_view bytes) const;
  const KnownIndex* index_of(const Page& page, std::string_view bytes) const;
  void scan_index_page(const Page& page, std::string_view bytes);

  const DamagedFile& file_;
  const KnownSchema& schema_;
  const Coverage& coverage_;
  LeafReader& rows_;
  PageMap& pages_;
  Progress& progress_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_PAGE_SCAN_H_
