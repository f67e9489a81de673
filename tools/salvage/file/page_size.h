// The page size of a file whose header may be wrong.

#ifndef TOOLS_SALVAGE_FILE_PAGE_SIZE_H_
#define TOOLS_SALVAGE_FILE_PAGE_SIZE_H_

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "tools/salvage/file/page.h"

namespace corvan_tool {

class ReadOnlyFile;

bool is_page_size(std::size_t size);

// The page size that a file's header states; 0 if it states none, or if the three constants after
// it are wrong.
std::size_t stated_page_size(std::string_view header);

// The page size at which most of the file's pages are sound. If several are equally good, the
// stated one wins, or without one that of a new store.
std::size_t guess_page_size(const ReadOnlyFile& file, std::size_t stated);

using ReadPage = std::function<bool(PageNumber page, std::string& bytes)>;

// The share of sound pages, from a sample of the pages 2 to `pages`, if `usable` bytes of each page
// are in use. Cells and free space fill a page to its last byte, so hardly any page is sound at a
// wrong size.
double share_of_sound_pages(PageNumber pages, std::size_t usable, const ReadPage& read);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_PAGE_SIZE_H_
