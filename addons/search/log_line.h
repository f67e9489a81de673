// The library's lines in the log.

#ifndef ADDONS_SEARCH_LOG_LINE_H_
#define ADDONS_SEARCH_LOG_LINE_H_

#include <string_view>

namespace Corvan::search {

// Writes one error line, of both texts. If memory runs out, the line is lost.
void log_line(std::string_view text, std::string_view end = {}) noexcept;

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_LOG_LINE_H_
