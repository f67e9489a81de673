// A folder for temporary files.

#ifndef TOOLS_STORE_TEMPORARY_FOLDER_H_
#define TOOLS_STORE_TEMPORARY_FOLDER_H_

#include <memory>
#include <string>

#include "tools/store/abandoned_folders.h"

namespace corvan_tool {

// A new folder. The destructor removes it with its content, and so does a signal that ends the
// program. If the process is killed, the folder stays until the program is started again.
class TemporaryFolder {
 public:
  // Throws ToolError if the folder cannot be created.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  // Ends with a slash.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::unique_ptr<const FolderLock> lock_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_TEMPORARY_FOLDER_H_
