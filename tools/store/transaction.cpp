#include "tools/store/transaction.h"

#include <sqlite3.h>

#include <utility>

#include "tools/store/failed_commit.h"
#include "tools/store/sqlite_errors.h"
#include "tools/ui/error.h"

namespace corvan_tool {

StoreTransaction::StoreTransaction(const std::string& file, std::string name,
                                   const std::string& begin)
    : file_(file), name_(std::move(name)), connection_(std::make_unique<Connection>(file)) {
  // As the library does: deleted messages are overwritten.
  require(connection_->run("pragma secure_delete=on"));
  require(connection_->run(begin));
}

void StoreTransaction::require(int rc, const std::string& what) const {
  if (rc == SQLITE_DONE) return;
  throw ToolError(name_ + ": " + (what.empty() ? "" : what + ": ") +
                  failure_text(*connection_, rc, "nothing was changed"));
}

std::string StoreTransaction::commit(const std::function<bool(const Connection&)>& is_made) {
  const int rc = connection_->run("commit");
  if (rc == SQLITE_DONE) {
    connection_.reset();
    return "";
  }
  if (!may_have_stored(sqlite3_extended_errcode(connection_->handle()))) require(rc);
  const auto text = [&](const std::string& outcome) {
    return name_ + ": " + failure_text(*connection_, rc, outcome);
  };
  const std::string nothing = text("nothing was changed");
  std::string everything = text("the changes were made nevertheless");
  const std::string unknown = text(
      "it is unknown whether the changes were made; run the command again when the store can be "
      "written again");
  connection_.reset();
  switch (settle_failed_commit(file_, is_made)) {
    case CommitOutcome::kNothing:
      throw ToolError(nothing);
    case CommitOutcome::kEverything:
      return everything;
    case CommitOutcome::kUnknown:
      break;
  }
  throw ToolError(unknown);
}

}  // namespace corvan_tool
