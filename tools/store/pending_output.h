// Output that must not stay behind if a command fails or is interrupted.

#ifndef TOOLS_STORE_PENDING_OUTPUT_H_
#define TOOLS_STORE_PENDING_OUTPUT_H_

#include <string>
#include <utility>

namespace corvan_tool {

// A new file or folder under a temporary name beside its place. The destructor removes it with its
// content unless it was kept, and so does a signal that ends the program.
class PendingOutput {
 public:
  // Creates an empty file or folder that only its owner can open. Throws ToolError if `place`
  // exists, if its parent folder is missing, if it is the name of a store's file, or if the output
  // cannot be created.
  static PendingOutput file(std::string place) { return {std::move(place), false}; }
  static PendingOutput folder(std::string place) { return {std::move(place), true}; }
  PendingOutput(const PendingOutput&) = delete;
  PendingOutput& operator=(const PendingOutput&) = delete;
  ~PendingOutput();

  // The temporary path.
  const std::string& path() const { return path_; }

  // Syncs the output and renames it to its place. Throws ToolError if that fails, or if the place
  // exists by now. If only the sync of the new name fails, the output stays; the error says that a
  // power loss could undo the renaming.
  void keep();

 private:
  PendingOutput(std::string place, bool is_folder);

  std::string place_;
  std::string path_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_PENDING_OUTPUT_H_
