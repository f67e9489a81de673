#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>
#include <utility>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/connection.h"
#include "tools/store/sqlite_errors.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

struct CompactOptions {
  std::string folder;
  bool json = false;
};

class Compaction {
 public:
  explicit Compaction(std::string file) : file_(std::move(file)), connection_(file_) {}

  void run() const {
    const StatementProgress progress(connection_.handle(),
                                     "million steps of checking and rewriting");
    // What is damaged would lose rows on the way without a word.
    std::string findings;
    require(connection_.each_row("pragma integrity_check(1)",
                                 [&findings](sqlite3_stmt* row) { findings = text_at(row, 0); }));
    if (findings != "ok") {
      throw ToolError(file_ + ": damaged (" + findings +
                      "); nothing was changed; see 'corvan salvage'");
    }
    checkpoint();
    require(connection_.run("vacuum"));
    checkpoint();
  }

 private:
  // Moves the whole log into the file and makes the log empty.
  void checkpoint() const {
    bool busy = false;
    require(connection_.each_row("pragma wal_checkpoint(truncate)", [&busy](sqlite3_stmt* row) {
      busy = sqlite3_column_int(row, 0) != 0;
    }));
    if (busy) require(SQLITE_BUSY);
  }

  void require(int rc) const {
    if (rc == SQLITE_DONE) return;
    throw ToolError(file_ + ": " + failure_text(connection_, rc, "no message was changed"));
  }

  const std::string file_;
  const Connection connection_;
};

int run_compact(const CompactOptions& options) {
  const std::string file = store_file(options.folder);
  const Clock::time_point start = Clock::now();
  require_store_in(options.folder, false);
  const StoreSizes before = store_sizes(file);
  StoreSizes after;
  {
    const Compaction compaction(file);
    compaction.run();
    after = store_sizes(file);
  }
  const int64_t freed = before.file + before.log - after.file - after.log;
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (options.json) {
    const auto json = [](const StoreSizes& sizes) {
      return Json{{"file_bytes", sizes.file}, {"log_bytes", sizes.log}};
    };
    print_json({{"before", json(before)},
                {"after", json(after)},
                {"freed_bytes", freed},
                {"seconds", seconds}});
  } else {
    TextTable table({{""}, {"FILE", TextTable::kRight}, {"LOG", TextTable::kRight}});
    table.add({"before", size_text(before.file), size_text(before.log)});
    table.add({"after", size_text(after.file), size_text(after.log)});
    table.print(std::cout, terminal_width());
    std::cout << (freed < 0 ? "grown by " : "freed ") << size_text(freed < 0 ? -freed : freed)
              << "; " << seconds_text(seconds) << " s\n";
  }
  require_output("the store was compacted");
  return kOk;
}

constexpr const char* kCompactResult =
    "A store's file does not shrink when messages are deleted: their room waits for new ones. This\n"
    "checks the file, moves the write-ahead log into it, rewrites it without the free room (VACUUM)\n"
    "and empties the log. Rows stay as they are; an interrupt or a failure leaves the store whole.\n"
    "A client may have the store open, but what it saves meanwhile fails. It needs free room for two\n"
    "more copies of the store; a store that is locked for two seconds is an error.\n"
    "With --json: an object with before and after, objects with file_bytes and log_bytes;\n"
    "freed_bytes and seconds.\n";

}  // namespace

void add_compact(CommandLine& line) {
  line.add<CompactOptions>("compact", "Give back the room that deleted messages left",
                           kCompactResult, run_compact);
}

}  // namespace corvan_tool
