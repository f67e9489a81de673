// Names of files and folders. Paths are UTF-8. On a system that lets other programs, for example
// virus scanners, hold a file for a moment, removing and renaming try again for about a second.

#ifndef TOOLS_PLATFORM_FILE_SYSTEM_H_
#define TOOLS_PLATFORM_FILE_SYSTEM_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace corvan_tool {

// The longest name of a file, in bytes of UTF-8 that always fit.
extern const std::size_t kLongestName;

// Whether the character separates the names of a path that a user writes.
bool is_path_delimiter(char character);

// The name of a file in one of the spellings that the system takes for the same file: in lower case
// and without dots, blanks and the name of a stream at its end on Windows, unchanged elsewhere.
std::string comparable_name(std::string name);

// The text of a path, with '/' as the delimiter; but unchanged if it begins with two
// delimiters, as the path of a file on a server does.
std::string path_text(const std::filesystem::path& path);

// The folder for temporary files.
std::filesystem::path temporary_folder(std::error_code& error);

// Create an empty file or folder that only its owner can open. The last six characters of the path
// must be "XXXXXX"; letters and digits replace them. Return 0, or the number of errno.
int make_private_file(std::string& path);
int make_private_folder(std::string& path);

// The paths of all files and folders below the folder, at any depth. Throws
// std::filesystem::filesystem_error if the folder cannot be listed.
std::vector<std::string> content_of(const std::string& folder);

// Removes a file, or an empty folder. Returns 0, or the number of errno.
int remove_file(const std::string& path);

// Removes a file, or a folder with its content. A missing one is no error.
void remove_with_content(const std::string& path, std::error_code& error);

// Renames a file or folder unless `to` exists. Returns 0, or the number of errno: EEXIST if `to`
// exists. Where the file system has no atomic operation for this, a file that another process
// creates meanwhile is replaced.
int rename_to_free(const std::string& from, const std::string& to);

// Makes a file's content, or a folder's entries, durable. An empty path is the current folder.
// Returns false if that fails; then errno says why. Where the system cannot do it for folders, it
// does nothing for them and returns true.
bool sync_path(const std::string& path);

// Syncs the whole file system that holds the path: faster than one sync for each of thousands of
// files. False if that is not possible.
bool sync_file_system(const std::string& path);

// Whether this process may write the file, or create files in the folder. If not, errno says why.
bool may_write_file(const std::string& file);
bool may_write_folder(const std::string& folder);

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_FILE_SYSTEM_H_
