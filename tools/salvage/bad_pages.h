// The list of bad pages in the report.

#ifndef TOOLS_SALVAGE_BAD_PAGES_H_
#define TOOLS_SALVAGE_BAD_PAGES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/salvage/file/page_set.h"

namespace corvan_tool {

// Consecutive pages with the same fault.
struct BadPages {
  PageNumber first = 0;
  PageNumber last = 0;
  std::string what;
};

// Collects the faults of pages. If a page has several, the first one that was added is listed.
class BadPageList {
 public:
  void add(PageNumber page, const std::string& what);
  void add(const PageRange& range, const std::string& what);

  // In ascending order.
  std::vector<BadPages> list() const;

 private:
  struct Note {
    PageRange range;
    std::uint32_t text = 0;  // index in texts_
  };
  void tidy();

  std::vector<Note> notes_;
  std::size_t tidied_ = 0;  // how many notes the last tidy() left
  std::vector<std::string> texts_;
  std::map<std::string, std::uint32_t> numbers_;  // text to index in texts_
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_BAD_PAGES_H_
