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
  // Creates it, empty and for its owner alone. Throws ToolError if `place` exists, its parent
  // folder is missing, it is the name of a store's file, or it cannot be created.
  static PendingOutput file(std::string place) { return {std::move(place), false}; }
  static PendingOutput folder(std::string place) { return {std::move(place), true}; }
  PendingOutput(const PendingOutput&) = delete;
  PendingOutput& operator=(const PendingOutput&) = delete;
  ~PendingOutput();

  // The temporary path.
  const std::string& path() const { return path_; }

  // Gives it its name, durably. Throws ToolError if that fails, or if the place exists by now. If
  // only a power loss could undo the renaming, the error says so, and the output stays.
  void keep();

 private:
  PendingOutput(std::string place, bool is_folder);

  std::string place_;
  std::string path_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_PENDING_OUTPUT_H_
