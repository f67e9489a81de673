// The store, opened for a command.

#ifndef TOOLS_STORE_LIBRARY_STORE_H_
#define TOOLS_STORE_LIBRARY_STORE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace corvan_tool {

// What is at a store's place.
enum class StoreState {
  kEmpty,    // no file, or a database without a table
  kStore,    // a message store
  kForeign,  // a database of something else
  kDamaged,  // not a database, or a damaged one
};

// Here and below, `name` is the file's name in the text of a ToolError: `file` may be a copy.

// Looks into a file, deleting nothing. As the last one to close it, SQLite moves its log into it:
// of what must stay as it is, give a copy. `detail` receives SQLite's text for kDamaged. Throws
// ToolError when the file cannot be read.
StoreState look_at_store(const std::string& file, const std::string& name, std::string& detail);

// Throws ToolError unless a store may be opened there; an empty one may when `may_be_empty`.
void require_store(const std::string& file, const std::string& name, bool may_be_empty);

// The same for the file in `folder`, which must exist, be writable and is looked at without
// changing it: what is no store stays as it is, its log included. What does not show at once that
// it is one is copied for that.
void require_store_in(const std::string& folder, bool may_be_empty);

// The messages that the store in this file holds as being sent. Throws ToolError when they cannot
// be read.
std::vector<int64_t> messages_being_sent(const std::string& file, const std::string& name);

// The process's store while the object lives. What the store logs as a warning or an error is kept
// here instead of being written.
class OpenStore {
 public:
  // Throws ToolError when the store cannot be opened. One that was opened with a failure, as a
  // damaged one may be, is left to failure().
  OpenStore(const std::string& folder, const std::string& user);
  OpenStore(const OpenStore&) = delete;
  OpenStore& operator=(const OpenStore&) = delete;
  ~OpenStore();

  Corvan::CvDbSingleton* operator->() const { return Corvan::CvDbSingleton::get_instance(); }

  // The first failure that the store has logged, in SQLite's words where there are any; empty when
  // all went well.
  const std::string& failure() const { return failure_; }

 private:
  std::string failure_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_LIBRARY_STORE_H_
