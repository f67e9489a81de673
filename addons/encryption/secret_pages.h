// Pages of memory for secrets.

#ifndef ADDONS_ENCRYPTION_SECRET_PAGES_H_
#define ADDONS_ENCRYPTION_SECRET_PAGES_H_

#include <cstddef>

namespace Corvan::encryption {

// The size of a page.
std::size_t page_size();

// Pages filled with zeros, to be released with unmap_pages(). Where the system allows it, they are
// locked in memory and, except on Windows, left out of core dumps. Throws std::bad_alloc.
char* map_pages(std::size_t size);
void unmap_pages(char* pages, std::size_t size);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_SECRET_PAGES_H_
