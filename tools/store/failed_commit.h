// Finds out what a failed commit has left in a store.

#ifndef TOOLS_STORE_FAILED_COMMIT_H_
#define TOOLS_STORE_FAILED_COMMIT_H_

#include <functional>
#include <string>

namespace corvan_tool {

class Connection;

enum class CommitOutcome {
  kNothing,     // nothing of the transaction is in the store, and nothing of it can appear later
  kEverything,  // the whole transaction is in the store
  kUnknown,     // the store cannot be read or written; the transaction may appear later
};

// Whether a commit that failed with this extended result code may have stored its transaction.
// False if it lacked a lock or room: then SQLite has not written the commit mark.
bool may_have_stored(int code);

// Finds out whether a transaction is in the store although its commit failed.
//
// When the sync at the end of a commit fails, or memory runs out after it, SQLite rolls the
// transaction back. But its pages are already in the write-ahead log, with the mark of a commit. If
// nothing overwrites them there, the next process to open the store replays them. So this opens the
// store again, calls `is_there`, and then commits a change without effect, which overwrites what
// the failed commit wrote.
//
// The connection whose commit failed must be closed. `is_there` runs inside a write transaction and
// may throw ToolError, which gives kUnknown.
CommitOutcome settle_failed_commit(const std::string& file,
                                   const std::function<bool(const Connection&)>& is_there);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_FAILED_COMMIT_H_
