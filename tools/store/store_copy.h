// A consistent copy of a store's files, for commands that only look.

#ifndef TOOLS_STORE_STORE_COPY_H_
#define TOOLS_STORE_STORE_COPY_H_

#include <string>

#include "tools/store/pending_output.h"
#include "tools/store/store_files.h"

namespace corvan_tool {

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
