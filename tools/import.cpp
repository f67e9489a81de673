#include "tools/import.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <system_error>
#include <utility>

#include "tools/command_line.h"
#include "tools/import_line.h"
#include "tools/json_output.h"
#include "tools/line_source.h"
#include "tools/names.h"
#include "tools/open_store.h"
#include "tools/progress.h"
#include "tools/store_copy.h"
#include "tools/store_transaction.h"
#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 64;  // MiB

struct Counts {
  std::uint64_t stored = 0;     // as new messages
  std::uint64_t completed = 0;  // own messages that were there and now have their server uid
  std::uint64_t refused = 0;    // there already
  std::uint64_t bad = 0;        // lines skipped
  std::uint64_t lines() const { return stored + completed + refused + bad; }
};

class Import {
 public:
  explicit Import(const ImportOptions& options)
      : options_(options),
        source_(options.files, kLongestLine),
        batch_size_(std::max<std::size_t>(options.batch_size, 1)) {}

  void run() {
    read_batch();  // a bad beginning is found before a store is made
    prepare_folder();
    OpenStore store(options_.folder, options_.user);
    if (!store.failure().empty()) {
      throw ToolError(store_file(options_.folder) + ": " + store.failure());
    }
    store->execute_none_query("pragma busy_timeout=2000");  // as every other connection of the tool
    newest_id_ = read_newest_id(store);
    while (filled_ > 0) {
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
  struct Entry {
    ImportMessage message;
    std::string place;
  };

  // Fills the batch with the next good lines.
  void read_batch() {
    filled_ = 0;
    std::string line;
    while (filled_ < batch_size_ && source_.next(line)) {
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (filled_ == batch_.size()) batch_.emplace_back();
      Entry& entry = batch_[filled_];
      const std::optional<std::string> error = parser_.parse(line, entry.message);
      name_unknown_keys();
      if (!error) {
        entry.place = source_.place();
        ++filled_;
        continue;
      }
      if (!options_.skip_bad) throw ToolError(source_.place() + ": " + *error);
      progress_.clear();
      std::cerr << "corvan: " << source_.place() << ": " << *error << " (skipped)\n";
      ++counts_.bad;
    }
  }

  void name_unknown_keys() {
    for (; named_keys_ < parser_.unknown_keys().size(); ++named_keys_) {
      progress_.clear();
      std::cerr << "corvan: " << source_.place() << ": unknown key "
                << Json(parser_.unknown_keys()[named_keys_])
                       .dump(-1, ' ', true, Json::error_handler_t::replace)
                << " is passed over, here and further on\n";
    }
  }

  void prepare_folder() const {
    std::error_code error;
    std::filesystem::create_directories(options_.folder, error);
    if (std::filesystem::exists(options_.folder) &&
        !std::filesystem::is_directory(options_.folder)) {
      throw ToolError(options_.folder + ": is no folder; name the store's");
    }
    if (error) throw ToolError(options_.folder + ": " + error.message());
    require_regular_files(options_.folder);
    const std::string file = store_file(options_.folder);
    if (!std::filesystem::exists(file, error)) return;
    require_store_in(options_.folder, true);
    // The library waits for no lock when it opens a store.
    const StoreTransaction writable(file, file, "begin immediate");
  }

  static int64_t read_newest_id(OpenStore& store) {
    int32_t rc = 0;
    sqlite3_stmt* query = store->prepare_sql("select max(id) from t_message", rc);
    if (rc != 0) throw ToolError("the store cannot be read: " + store.failure());
    store->step(query, false);
    const int64_t id = Corvan::CvDbSingleton::get_int64(query, 0);
    store->finalize(query);
    return id;
  }

  void save_batch(OpenStore& store) {
    Counts counts = counts_;
    if (!store->start_transaction()) fail(batch_[0].place, store.failure());
    for (std::size_t i = 0; i < filled_; ++i) {
      const ImportMessage& m = batch_[i].message;
      const int64_t id = store->save_message(m.session_id, m.session_type, m.object_name, m.sender,
                                             m.content, m.is_receive, m.sent_status, 0,
                                             m.is_mention, m.sent_time, m.client_uid, m.server_uid,
                                             options_.history, options_.insert_only, m.is_receive);
      if (!store.failure().empty()) {
        store->execute_none_query("rollback transaction");
        fail(batch_[i].place, store.failure());
      }
      if (id < 0) {
        ++counts.refused;
      } else if (id <= newest_id_) {
        ++counts.completed;  // the store's ids only grow: the message was there before
      } else {
        ++counts.stored;
        newest_id_ = id;
      }
    }
    if (!store->commit_transaction()) fail(batch_[0].place, store.failure());
    counts_ = counts;
  }

  [[noreturn]] void fail(const std::string& place, const std::string& why) const {
    throw ToolError(store_file(options_.folder) + ": " + why + "; nothing was stored from " +
                    batch_[0].place + " on (at " + place + ")");
  }

  const ImportOptions& options_;
  LineSource source_;
  LineParser parser_;
  const std::size_t batch_size_;
  std::vector<Entry> batch_;  // the first `filled_` are in use; the others keep their memory
  std::size_t filled_ = 0;
  std::size_t named_keys_ = 0;
  Counts counts_;
  int64_t newest_id_ = 0;
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
               "name and count bad lines and go on; otherwise the first one ends the import, "
               "and nothing of its batch is saved");
}

}  // namespace corvan_tool
