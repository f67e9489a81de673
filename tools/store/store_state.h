// Finds out whether a file is a message store, before anything opens it as one.

#ifndef TOOLS_STORE_STORE_STATE_H_
#define TOOLS_STORE_STORE_STATE_H_

#include <string>

namespace corvan_tool {

enum class StoreState {
  kEmpty,    // no file, or a database without a table
  kStore,    // a message store
  kForeign,  // a database with other tables
  kDamaged,  // not a database, or a damaged one
};

// Below, `name` is the name of the file in errors: `file` may be a copy.

// Deletes nothing, but SQLite moves the log into the file when it closes it: pass a copy of a file
// that must not change. `detail` receives SQLite's text for kDamaged. Throws ToolError if the file
// cannot be read, or needs another key.
StoreState look_at_store(const std::string& file, const std::string& name, std::string& detail);

// Throws ToolError unless the file is a store. An empty file is accepted if `may_be_empty`.
void require_store(const std::string& file, const std::string& name, bool may_be_empty);

// Returns SQLite's text if the file is damaged, otherwise an empty text. Throws ToolError if the
// file is sound but not a store.
std::string damage_of_store(const std::string& file, const std::string& name);

// Throws ToolError unless `folder`, which must exist, holds a store that can be written. An empty
// file is accepted if `may_be_empty`. Does not change the files: if a first look does not show a
// store, a copy of them is examined.
void require_store_in(const std::string& folder, bool may_be_empty);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_STORE_STATE_H_
