#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/import/batch.h"
#include "tools/import/imported_store.h"
#include "tools/import/log_line.h"
#include "tools/import/log_reader.h"
#include "tools/import/options.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

constexpr const char* kNotKept =
    "the store did not keep it: a trigger in its file drops it, the id of its message is above "
    "2147483647, or t_message is unlike a new store's; see 'corvan verify'";

class Import {
 public:
  explicit Import(const ImportOptions& options) : options_(options), reader_(options, progress_) {}

  void run() {
    reader_.read(batch_);  // before the store is created: the first line may be bad
    ImportedStore store(options_);
    while (!batch_.empty()) {
      save_batch(store);
      progress_.show(lines());
      reader_.read(batch_);
    }
  }

  // Writes what has been done so far, also after a failure.
  void report() {
    progress_.clear();
    const double seconds = stopwatch_.seconds();
    const double rate = seconds > 0 ? static_cast<double>(lines()) / seconds : 0;
    if (options_.json) {
      print_json({{"stored", counts_.stored},
                  {"completed", counts_.completed},
                  {"refused", counts_.refused},
                  {"bad", reader_.skipped()},
                  {"seconds", seconds},
                  {"lines_per_second", rate}});
      return;
    }
    std::cout << fmt::format(
        "{} stored, {} completed, {} refused, {} bad; {:.2f} s, {:.0f} lines/s\n", counts_.stored,
        counts_.completed, counts_.refused, reader_.skipped(), seconds, rate);
  }

 private:
  std::uint64_t lines() const { return counts_.lines() + reader_.skipped(); }

  // Saves the batch. If the store drops messages, saves the batch again without them, so that the
  // conversations do not count them.
  void save_batch(ImportedStore& store) {
    while (!batch_.empty()) {
      const std::vector<std::size_t> dropped = store.save(batch_, counts_);
      if (dropped.empty()) return;
      if (!options_.skip_bad) fail_without(dropped.front());
      remove(dropped);
    }
  }

  [[noreturn]] void fail_without(std::size_t entry) const {
    throw ToolError(
        fmt::format("{}: {}; nothing was stored from {} on; --skip-bad skips such lines",
                    batch_[entry].place, kNotKept, batch_.front().place));
  }

  void remove(const std::vector<std::size_t>& dropped) {
    for (const std::size_t i : dropped) reader_.skip(batch_[i].place, kNotKept);
    for (auto i = dropped.rbegin(); i != dropped.rend(); ++i) {
      batch_.erase(batch_.begin() + static_cast<std::ptrdiff_t>(*i));
    }
  }

  const ImportOptions& options_;
  Progress progress_{"lines"};
  LogReader reader_;
  ImportBatch batch_;
  ImportCounts counts_;
  const Stopwatch stopwatch_;
};

int run_import(const ImportOptions& options) {
  Import import(options);
  try {
    import.run();
  } catch (const ToolError&) {
    import.report();
    throw;
  }
  import.report();
  require_output("the import is done");
  return kOk;
}

constexpr const char* kImportResult =
    "At the end, the command reports four numbers: lines stored as new messages; lines that completed\n"
    "a message that had no server_uid yet (found by client_uid and sender); lines refused because\n"
    "the message was already there; and bad lines.\n"
    "With --json: an object with stored, completed, refused, bad, seconds and lines_per_second.\n";

}  // namespace

void add_import(CommandLine& line) {
  auto [command, options] = line.add<ImportOptions>(
      "import", "Save the messages of conversation logs (JSON Lines)",
      std::string(kImportKeys) + kImportResult, run_import,
      "the store's folder; it is created if it is missing", KeyAge::kNewWithNewStore);
  command.arguments("FILE", options.files, "the logs, in time order; - for standard input",
                    Presence::kRequired);
  command.option("--user", "ID", options.user, "the signed-in user's id (required)",
                 Presence::kRequired);
  command.number("--batch", "N", options.batch_size,
                 "lines per transaction: they are checked and saved together (default 1000)",
                 1000000);
  command.flag("--history", options.history,
               "save as fetched history: a message that is not newer than its conversation does "
               "not change it");
  command.flag("--insert-only", options.insert_only,
               "save the messages without moving their conversations forward");
  command.flag("--skip-bad", options.skip_bad,
               "report and skip bad lines and lines that a trigger drops; without this option, the "
               "first one ends the import, and nothing of its batch is saved");
}

}  // namespace corvan_tool
