// Consistent copies of a store's files.

#ifndef TOOLS_STORE_STORE_COPY_H_
#define TOOLS_STORE_STORE_COPY_H_

#include <string>

#include "tools/store/store_files.h"
#include "tools/store/temporary_folder.h"

namespace corvan_tool {

// A temporary copy. Opening a store changes it, and deletes a damaged one, so commands that only
// read work on a copy. It holds one state of the store, write-ahead log included, even while
// another process writes: the files are read twice, until both readings agree.
class StoreCopy {
 public:
  // Throws ToolError if there is no store in `folder`, or its files cannot be copied.
  explicit StoreCopy(const std::string& folder);

  const std::string& folder() const { return folder_.path(); }

  // The sizes of the store's files when they were copied.
  const StoreSizes& sizes() const { return sizes_; }

 private:
  TemporaryFolder folder_;
  const StoreSizes sizes_;
};

// Copies the database `from`, which must exist, to the file `to` and its log and journal beside it,
// as StoreCopy does. Returns the sizes of the files. Throws ToolError if they cannot be copied.
StoreSizes copy_database(const std::string& from, const std::string& to);

// Copies the store in `folder` to the file `to` and its log and journal beside it, as StoreCopy
// does. Returns the sizes of the store's files. Throws ToolError as StoreCopy does.
StoreSizes copy_store(const std::string& folder, const std::string& to);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_STORE_COPY_H_
