// A consistent copy of a store's files, for commands that only look.

#ifndef TOOLS_STORE_STORE_COPY_H_
#define TOOLS_STORE_STORE_COPY_H_

#include <cstdint>
#include <string>

#include "tools/store/pending_output.h"

namespace corvan_tool {

// The store file in `folder`; it need not exist.
std::string store_file(const std::string& folder);

// The bytes that a store's file and its write-ahead log take; 0 for one that is not there. The log
// lies beside the file itself, not beside a link to it.
struct StoreSizes {
  int64_t file = 0;
  int64_t log = 0;
};
StoreSizes store_sizes(const std::string& file);

// Whether a log or a journal beside the file may hold a part of what the file stands for.
bool has_log(const std::string& file);

// Throws ToolError when the store's file in `folder`, or a file beside it that SQLite would open
// with it, is something else than a regular file, or a journal that would make SQLite delete
// another file. Any of them may be missing. To be called before SQLite opens them: it would wait
// for the other end of a FIFO.
void require_regular_files(const std::string& folder);

// Throws ToolError when a log or a journal that may hold something is in `folder` while the store's
// file is missing or empty: SQLite would delete them when it opens the store.
void require_no_lone_log(const std::string& folder);

// Opening a store changes it, and a damaged one is deleted by it, so looking is done in a copy. The
// copy, write-ahead log included, is of one moment even while another process writes to the store:
// it is read twice and taken when both readings agree. The files themselves are only read.
class StoreCopy {
 public:
  // Throws ToolError when there is no store in `folder`, or its files cannot be copied.
  explicit StoreCopy(const std::string& folder);

  // Where the copy is; it goes with the object, and when the program is interrupted.
  const std::string& folder() const { return folder_.path(); }

  // The sizes of the store's files at that moment.
  const StoreSizes& sizes() const { return sizes_; }

 private:
  TemporaryFolder folder_;
  const StoreSizes sizes_;
};

// Copies the files of the store in `folder` to `to`, which names the main file, as StoreCopy does:
// their sizes. Throws ToolError when there is no store, or its files cannot be copied.
StoreSizes copy_store(const std::string& folder, const std::string& to);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_STORE_COPY_H_
