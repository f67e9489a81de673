// What must not stay behind when a command fails or is interrupted.

#ifndef TOOLS_STORE_PENDING_OUTPUT_H_
#define TOOLS_STORE_PENDING_OUTPUT_H_

#include <memory>
#include <string>
#include <utility>

#include "tools/store/abandoned_folders.h"

namespace corvan_tool {

// From now on SIGHUP, SIGINT, SIGQUIT and SIGTERM, unless the program was started with them
// ignored, first remove every Unfinished and TemporaryFolder there is, then end the program as they
// do by default. To be called once, before another thread starts.
void remove_unfinished_when_interrupted();

// A new folder for temporary files, which is removed with all it holds when the object goes. Of a
// process that is killed it stays until the program is started again.
class TemporaryFolder {
 public:
  // Throws ToolError when it cannot be made.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  // With a slash at its end.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::unique_ptr<const FolderLock> lock_;
};

// A file or a folder in the making, at a temporary name beside its place. It is removed with all it
// holds when the object goes, unless it was kept.
class Unfinished {
 public:
  // Makes it, empty and its owner's alone. Throws ToolError when something is at `place` already,
  // its parent folder is missing, it is the name of a store's file, or it cannot be made.
  static Unfinished file(std::string place) { return {std::move(place), false}; }
  static Unfinished folder(std::string place) { return {std::move(place), true}; }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  ~Unfinished();

  // Where it is made.
  const std::string& path() const { return path_; }

  // Gives it its name, durably. Throws ToolError when that fails, or something has come to be
  // there. If only the name may be lost with the power, the error says so, and the thing stays.
  void keep();

 private:
  Unfinished(std::string place, bool is_folder);

  std::string place_;
  std::string path_;
};

// What a path at or below an Unfinished will be called once that is kept, for texts; any other path
// as it is.
std::string kept_name(const std::string& path);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_PENDING_OUTPUT_H_
