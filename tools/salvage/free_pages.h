// The list of free pages.

#ifndef TOOLS_SALVAGE_FREE_PAGES_H_
#define TOOLS_SALVAGE_FREE_PAGES_H_

#include "tools/salvage/page_map.h"

namespace corvan_tool {

// Marks the pages that the file lists as free, up to the first fault in the list.
void mark_free_pages(const DamagedFile& file, PageMap& pages);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FREE_PAGES_H_
