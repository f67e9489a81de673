// A consistent copy of a store's files, for commands that only look.

#ifndef TOOLS_STORE_COPY_H_
#define TOOLS_STORE_COPY_H_

#include <string>

namespace corvan_tool {

// The store file in `folder`; it need not exist.
std::string store_file(const std::string& folder);

// Opening a store changes it, and a damaged one is deleted by it, so looking is done in a copy. The
// copy, write-ahead log included, is of one moment even while another process writes to the store:
// it is read twice and taken when both readings agree. The files themselves are only read.
class StoreCopy {
 public:
  // Throws ToolError when there is no store in `folder`, or its files cannot be copied.
  explicit StoreCopy(const std::string& folder);
  StoreCopy(const StoreCopy&) = delete;
  StoreCopy& operator=(const StoreCopy&) = delete;
  // Removes the copy. An interrupt from the terminal removes it as well.
  ~StoreCopy();

  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_COPY_H_
