// What the disk holds of a test's messages.

#ifndef TESTS_ADDONS_ENCRYPTION_DISK_SEARCH_H_
#define TESTS_ADDONS_ENCRYPTION_DISK_SEARCH_H_

#include <map>
#include <string>

namespace corvan_test {

// The files of a folder, but not of its sub-folders, by name. The file `*-shm` is left out: it has
// no content of pages, and each process that opens the log writes it again.
using Files = std::map<std::string, std::string>;
Files files_in(const std::string& folder);

// Replaces the files of one folder by those of another.
void put_files(const std::string& folder, const Files& files);

// A word that no other process plants.
const std::string& planted_word();

// The files that contain the planted word in UTF-8 or UTF-16, one line per file; empty if there is
// none. First: all files below `folder`. Second: the files that appeared in the temporary folders
// since this program started, and the files that this process has open, including deleted ones.
std::string plaintext_below(const std::string& folder);
std::string plaintext_elsewhere();

// Both.
std::string files_with_plaintext(const std::string& folder);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_DISK_SEARCH_H_
