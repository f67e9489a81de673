#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>
#include <utility>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/import/imported_store.h"
#include "tools/import/line_source.h"
#include "tools/import/log_line.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 64;  // MiB
constexpr const char* kNotKept =
    "the store did not keep it: a trigger in its file drops it, the id of its message is above "
    "2147483647, or t_message is unlike a new store's; see 'corvan verify'";

class Import {
 public:
  explicit Import(const ImportOptions& options)
      : options_(options),
        source_(options.files, kLongestLine),
        batch_size_(std::max<std::size_t>(options.batch_size, 1)) {}

  void run() {
    read_batch();  // a bad beginning is found before a store is made
    ImportStore store(options_);
    while (!batch_.empty()) {
      save_batch(store);
      progress_.show(counts_.lines());
      read_batch();
    }
  }

  // Writes what has been done so far, also after a failure.
  void report() {
    progress_.clear();
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const double rate = seconds > 0 ? static_cast<double>(counts_.lines()) / seconds : 0;
    if (options_.json) {
      const Json result = {
          {"stored", counts_.stored},   {"completed", counts_.completed},
          {"refused", counts_.refused}, {"bad", counts_.bad},
          {"seconds", seconds},         {"lines_per_second", rate},
      };
      print_json(result);
      return;
    }
    std::array<char, 128> time = {};
    std::snprintf(time.data(), time.size(), "%.2f s, %.0f lines/s", seconds, rate);
    std::cout << counts_.stored << " stored, " << counts_.completed << " completed, "
              << counts_.refused << " refused, " << counts_.bad << " bad; " << time.data() << '\n';
  }

 private:
  // Fills the batch with the next good lines.
  void read_batch() {
    std::size_t filled = 0;
    std::string line;
    while (filled < batch_size_ && source_.next(line)) {
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (filled == batch_.size()) batch_.emplace_back();
      ImportEntry& entry = batch_[filled];
      entry.place = source_.place();
      const std::optional<std::string> error = parser_.parse(line, entry.message);
      name_unknown_keys();
      if (!error) {
        ++filled;
        continue;
      }
      if (!options_.skip_bad) throw ToolError(entry.place + ": " + *error);
      skip(entry, *error);
    }
    batch_.resize(filled);
  }

  void skip(const ImportEntry& entry, const std::string& why) {
    progress_.clear();
    std::cerr << "corvan: " << printable(entry.place + ": " + why) << " (skipped)\n";
    ++counts_.bad;
  }

  void name_unknown_keys() {
    for (; named_keys_ < parser_.unknown_keys().size(); ++named_keys_) {
      progress_.clear();
      std::cerr << "corvan: " << printable(source_.place()) << ": unknown key "
                << Json(parser_.unknown_keys()[named_keys_])
                       .dump(-1, ' ', true, Json::error_handler_t::replace)
                << " is passed over, here and further on\n";
    }
  }

  // Saves the batch; again without the lines that the store does not keep, so that its
  // conversations do not count them.
  void save_batch(ImportStore& store) {
    while (!batch_.empty()) {
      const std::vector<std::size_t> dropped = store.save(batch_, counts_);
      if (dropped.empty()) return;
      if (!options_.skip_bad) {
        throw ToolError(batch_[dropped.front()].place + ": " + kNotKept +
                        "; nothing was stored from " + batch_.front().place +
                        " on; --skip-bad passes over such lines");
      }
      for (const std::size_t i : dropped) skip(batch_[i], kNotKept);
      for (auto i = dropped.rbegin(); i != dropped.rend(); ++i) {
        batch_.erase(batch_.begin() + static_cast<std::ptrdiff_t>(*i));
      }
    }
  }

  const ImportOptions& options_;
  LineSource source_;
  LineParser parser_;
  const std::size_t batch_size_;
  std::vector<ImportEntry> batch_;
  std::size_t named_keys_ = 0;
  ImportCounts counts_;
  Progress progress_{"lines"};
  const Clock::time_point start_ = Clock::now();
};

constexpr const char* kImportResult =
    "At the end it tells how many lines were stored as new messages, completed a message that was\n"
    "there without a server_uid (found by client_uid and sender), were refused because their\n"
    "message was there, and were bad.\n"
    "With --json: an object with stored, completed, refused, bad, seconds and lines_per_second.\n";

}  // namespace

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

void add_import(CommandLine& line) {
  auto [command, options] =
      line.add<ImportOptions>("import", "Save the messages of conversation logs (JSON Lines)",
                              std::string(kImportKeys) + kImportResult, run_import,
                              "the store's folder, created when it is missing");
  command.arguments("FILE", options.files, "the logs, in time order; - for standard input",
                    Presence::kRequired);
  command.option("--user", "ID", options.user, "the signed-in user's id (required)",
                 Presence::kRequired);
  command.number("--batch", "N", options.batch_size,
                 "lines checked and saved together, in one transaction (default 1000)", 1000000);
  command.flag("--history", options.history,
               "save as fetched history: a message not newer than its conversation leaves it");
  command.flag("--insert-only", options.insert_only,
               "save without moving the conversations forward");
  command.flag("--skip-bad", options.skip_bad,
               "name and count bad lines, and those that a trigger drops, and go on; otherwise "
               "the first one ends the import, and nothing of its batch is saved");
}

}  // namespace corvan_tool
