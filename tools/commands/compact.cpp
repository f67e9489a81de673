#include <fmt/format.h>

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
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

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
    // VACUUM would lose rows of a damaged file without an error.
    std::string findings;
    require(connection_.each_row("pragma integrity_check(1)",
                                 [&findings](const Row& row) { findings = row.text(0); }));
    if (findings != "ok") {
      throw ToolError(file_ + ": damaged (" + findings +
                      "); nothing was changed; see 'corvan salvage'");
    }
    checkpoint();
    require(connection_.run("vacuum"));
    checkpoint();
  }

 private:
  // Moves the whole log into the file and empties the log.
  void checkpoint() const {
    bool busy = false;
    require(connection_.each_row("pragma wal_checkpoint(truncate)",
                                 [&busy](const Row& row) { busy = row.int32(0) != 0; }));
    if (busy) require(SQLITE_BUSY);
  }

  void require(int rc) const {
    if (rc == SQLITE_DONE) return;
    throw ToolError(file_ + ": " + failure_text(connection_, rc, "no message was changed"));
  }

  const std::string file_;
  const Connection connection_;
};

struct CompactOutcome {
  StoreSizes before;
  StoreSizes after;
  double seconds = 0;

  int64_t freed() const { return before.file + before.log - after.file - after.log; }
};

CompactOutcome compact_store(const std::string& folder) {
  const Stopwatch stopwatch;
  const std::string file = store_file(folder);
  require_store_in(folder, false);
  CompactOutcome outcome;
  outcome.before = store_sizes(file);
  const Compaction compaction(file);
  compaction.run();
  outcome.after = store_sizes(file);
  outcome.seconds = stopwatch.seconds();
  return outcome;
}

void print_sizes_json(const CompactOutcome& outcome) {
  const auto json = [](const StoreSizes& sizes) {
    return Json{{"file_bytes", sizes.file}, {"log_bytes", sizes.log}};
  };
  print_json({{"before", json(outcome.before)},
              {"after", json(outcome.after)},
              {"freed_bytes", outcome.freed()},
              {"seconds", outcome.seconds}});
}

void print_sizes(const CompactOutcome& outcome) {
  TextTable table({{""}, {"FILE", TextTable::kRight}, {"LOG", TextTable::kRight}});
  table.add({"before", size_text(outcome.before.file), size_text(outcome.before.log)});
  table.add({"after", size_text(outcome.after.file), size_text(outcome.after.log)});
  table.print(std::cout, terminal_width());
  const int64_t freed = outcome.freed();
  std::cout << fmt::format("{} {}; {} s\n", freed < 0 ? "grown by" : "freed",
                           size_text(freed < 0 ? -freed : freed), seconds_text(outcome.seconds));
}

int run_compact(const CompactOptions& options) {
  const CompactOutcome outcome = compact_store(options.folder);
  if (options.json) {
    print_sizes_json(outcome);
  } else {
    print_sizes(outcome);
  }
  require_output("the store was compacted");
  return kOk;
}

constexpr const char* kCompactResult =
    "A store's file does not shrink when messages are deleted: their space is reused for new ones.\n"
    "'compact' checks the file, moves the write-ahead log into it, rewrites it without the free space\n"
    "(VACUUM) and empties the log. Rows do not change; an interrupt or a failure does no harm. A\n"
    "client may have the store open, but its saves fail meanwhile. The disk needs room for two more\n"
    "copies of the store. A store that is locked for two seconds is an error.\n"
    "With --json: an object with before and after, objects with file_bytes and log_bytes;\n"
    "freed_bytes and seconds.\n";

}  // namespace

void add_compact(CommandLine& line) {
  line.add<CompactOptions>("compact", "Free the space of deleted messages", kCompactResult,
                           run_compact);
}

}  // namespace corvan_tool
