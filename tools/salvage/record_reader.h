// Reads records that continue on overflow pages.

#ifndef TOOLS_SALVAGE_RECORD_READER_H_
#define TOOLS_SALVAGE_RECORD_READER_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/salvage/file/damaged_file.h"
#include "tools/salvage/page_map.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

// Whether a tree leads to a cell's page. An overflow page belongs to one row only. So a row that a
// tree leads to may not use a page that another row uses. Other rows may be old copies of one row,
// and may share overflow pages.
enum class Origin { kTree, kUnreached };

class RecordReader {
 public:
  // The arguments must live longer.
  RecordReader(const DamagedFile& file, PageMap& pages, Progress& progress);

  // Reads a cell's whole record, and marks the overflow pages that it takes. Returns false, and
  // notes the page at fault, if the overflow pages cannot be those of this record.
  bool read(std::string_view page, const Cell& cell, Origin origin, std::string& record);

 private:
  bool append(std::uint64_t size, PageNumber next, Origin origin, std::string& record,
              std::vector<PageNumber>& chain);
  bool is_taken(PageNumber page, Origin origin) const;

  const DamagedFile& file_;
  PageMap& pages_;
  Progress& progress_;
  // Limits how many overflow pages are read: wrong pointers could cause any number of readings.
  std::uint64_t readings_left_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RECORD_READER_H_
