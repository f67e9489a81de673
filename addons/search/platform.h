// What differs between systems. Paths are UTF-8. A path that is not UTF-8 is treated as a
// missing file.

#ifndef ADDONS_SEARCH_PLATFORM_H_
#define ADDONS_SEARCH_PLATFORM_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvan::search {

// Whether the system lets this process write the file.
bool is_writable(const std::string& file);

// True if there is no such file afterwards. On Windows, a file that is open stays.
bool delete_file(const std::string& file);

// Creates the file, if there is none, with the permissions of `model`. On Windows it does nothing:
// files there have the permissions that their folder gives them.
void create_like(const std::string& file, const std::string& model);

// If the file exists and cannot be written, but `model` can, copies the permissions of `model` to
// the file. Does nothing on Windows.
void repair_permissions(const std::string& file, const std::string& model);

// Position of the first `what` in the text; npos if there is none.
std::size_t find_bytes(std::string_view text, std::string_view what);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_PLATFORM_H_
