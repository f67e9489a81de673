// The files of a store: the database itself, its write-ahead log, the log's index, its journal.

#ifndef TOOLS_STORE_STORE_FILES_H_
#define TOOLS_STORE_STORE_FILES_H_

#include <cstdint>
#include <initializer_list>
#include <string>

#include "tools/store/file_names.h"

namespace corvan_tool {

// The path of the store's file in `folder`. The file need not exist.
std::string store_file(const std::string& folder);

// The path of the search index in `folder`. The file need not exist.
std::string search_index_file(const std::string& folder);

// Whether there is a file of that name, of any kind.
bool has_search_index(const std::string& folder);

// Whether the file begins like a database that is not encrypted. False if it cannot be read.
bool is_plain_database(const std::string& file);

// `file`, or the file that it links to. SQLite puts the log and the journal beside the latter.
std::string real_file(const std::string& file);

// The sizes of a store's file and of its write-ahead log in bytes; 0 for a missing file.
struct StoreSizes {
  int64_t file = 0;
  int64_t log = 0;
};
StoreSizes store_sizes(const std::string& file);

// Whether there is a write-ahead log or a journal that is not empty.
bool has_log(const std::string& file);

// Throws ToolError if `file`, or a file beside it that SQLite would open with it, is not a regular
// file, or if its journal would make SQLite delete another file. Missing files are fine. Call this
// before SQLite opens the file: it would wait for the other end of a FIFO.
void require_regular_files(const std::string& file);

// Throws ToolError if `folder` has a log or a journal with content while the store's file is
// missing or empty: SQLite would delete them when it opens the store.
void require_no_lone_log(const std::string& folder);

// Throws ToolError if one of the files with these suffixes beside `file` is not a regular file.
void require_regular_beside(const std::string& file, std::initializer_list<const char*> suffixes);

// Throws ToolError if SQLite would roll the journal back together with others. It opens the file
// that such a journal names at its end, anywhere on the disk, and deletes it. `name` is the
// journal's name in the error. SQLite ignores a journal that begins with a zero byte.
void require_no_super_journal(const std::string& journal, const std::string& name);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_STORE_FILES_H_
