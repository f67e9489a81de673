#include <iostream>
#include <sstream>
#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/snapshot.h"
#include "tools/store/sqlite_errors.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/progress.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

struct CheckOptions {
  std::string folder;
  bool json = false;
};

// The findings of SQLite's integrity check, one per line.
std::string integrity_findings(const std::string& folder) {
  const Snapshot store(folder, Snapshot::kAccepted);
  if (!store.damage().empty()) return store.damage();
  const StatementProgress progress(store.connection().handle(), "million steps of the check");
  std::string result;
  const auto add = [&result](const std::string& finding) {
    if (!result.empty()) result += '\n';
    result += finding;
  };
  const int rc = store.connection().each_row("pragma integrity_check",
                                             [&add](const Row& row) { add(row.text(0)); });
  if (is_damage(rc)) {
    add(store.connection().error());
  } else {
    store.require(rc);
  }
  return result;
}

int run_check(const CheckOptions& options) {
  const std::string result = integrity_findings(options.folder);
  const bool sound = result == "ok";
  if (options.json) {
    print_json({{"ok", sound}, {"result", result}});
  } else {
    std::istringstream findings(result);
    for (std::string line; std::getline(findings, line);) std::cout << printable(line) << '\n';
  }
  return sound ? kOk : kNegative;
}

constexpr const char* kCheckResult =
    "Prints \"ok\", or what SQLite's integrity check found.\n"
    "With --json: an object with ok (true or false) and result (the text, one finding per line).\n"
    "Exit status 1 if the store is damaged.\n";

}  // namespace

void add_check(CommandLine& line) {
  line.add<CheckOptions>("check", "Check that the store's file is sound", kCheckResult, run_check);
}

}  // namespace corvan_tool
