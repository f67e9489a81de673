#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/connection.h"
#include "tools/store/pending_output.h"
#include "tools/store/store_copy.h"
#include "tools/store/store_state.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

struct BackupOptions {
  std::string folder;
  std::string to;
  bool json = false;
};

struct Backup {
  std::string file;
  int64_t bytes = 0;
  int64_t log_bytes = 0;  // of the write-ahead log, which a sound copy has inside
  int64_t messages = 0;
  int64_t sessions = 0;
  std::string damage;  // in SQLite's words; empty for a sound store
};

// Puts what the log of a copy holds into the file itself and counts what there is. False, with
// `backup.damage`, when that is damaged. Throws ToolError, with `place` as the copy's name, when it
// fails for another reason, as for want of room.
bool settle(const std::string& file, const std::string& place, Backup& backup) {
  const Connection connection(file);
  const StatementProgress progress(connection.handle(), "million steps of the check");
  std::string findings;
  const auto into = [](int64_t& number) {
    return [&number](sqlite3_stmt* row) { number = sqlite3_column_int64(row, 0); };
  };
  int rc = connection.each_row("pragma integrity_check(1)",
                               [&findings](sqlite3_stmt* row) { findings = text_at(row, 0); });
  if (rc == SQLITE_DONE && findings != "ok") {
    backup.damage = findings;
    return false;
  }
  if (rc == SQLITE_DONE) rc = connection.run("pragma wal_checkpoint(truncate)");
  if (rc == SQLITE_DONE) {
    rc = connection.each_row("select count(*) from t_message", into(backup.messages));
  }
  if (rc == SQLITE_DONE) {
    rc = connection.each_row("select count(*) from t_session", into(backup.sessions));
  }
  if (rc == SQLITE_DONE) return true;
  const int code = rc & 0xff;
  if (code != SQLITE_CORRUPT && code != SQLITE_NOTADB) {
    throw ToolError(place + ": the copy cannot be completed: " + connection.error() +
                    "; nothing was kept; see that there is room for it");
  }
  backup.damage = connection.error();
  return false;
}

void print(const Backup& backup, bool json) {
  const bool sound = backup.damage.empty();
  if (json) {
    Json result = {{"ok", sound},
                   {"file", backup.file},
                   {"bytes", backup.bytes},
                   {"log_bytes", backup.log_bytes}};
    result["messages"] = sound ? Json(backup.messages) : Json(nullptr);
    result["sessions"] = sound ? Json(backup.sessions) : Json(nullptr);
    result["damage"] = sound ? Json(nullptr) : Json(backup.damage);
    print_json(result);
    return;
  }
  std::cout << printable(backup.file) << ": ";
  if (sound) {
    std::cout << backup.messages << " messages, " << backup.sessions << " conversations, "
              << size_text(backup.bytes) << "; sound; "
              << (backup.log_bytes > 0 ? "the write-ahead log is in it\n"
                                       : "there was no write-ahead log\n");
  } else {
    std::cout << "damaged (" << printable(backup.damage)
              << "); copied as it is, log and all; 'corvan salvage' brings out what can be read\n";
  }
}

int run_backup(const BackupOptions& options) {
  Unfinished folder = Unfinished::folder(options.to);
  const std::string file = store_file(folder.path());
  Backup backup;
  backup.file = store_file(options.to);
  backup.log_bytes = copy_store(options.folder, file).log;

  // Looking may change the copy; what turns out to be damaged is kept as it was found.
  backup.damage = damage_of_store(file, store_file(options.folder));
  const bool sound = backup.damage.empty() && settle(file, options.to, backup);
  if (!sound) copy_store(options.folder, file);
  std::filesystem::remove(file + "-shm");  // of the copy's own making
  backup.bytes = store_sizes(file).file;
  folder.keep();
  print(backup, options.json);
  require_output("the backup is in " + options.to);
  return sound ? kOk : kNegative;
}

constexpr const char* kBackupResult =
    "NEWFOLDER must not exist. The copy is of one moment, even while a client writes to the store,\n"
    "and one file: what the write-ahead log held is in it. It is checked before it is kept. A\n"
    "damaged store is copied as it is, with its log, and the command says so.\n"
    "To go back to a backup, put its file in the store's folder while no client has the store open,\n"
    "and remove corvan-wal and corvan-shm there.\n"
    "With --json: an object with ok, file, bytes, log_bytes (of the log that was there), messages,\n"
    "sessions (both null of a damaged store) and damage (null, or SQLite's text).\n"
    "Exit status 1 when the store is damaged.\n";

}  // namespace

void add_backup(CommandLine& line) {
  auto [command, options] = line.add<BackupOptions>(
      "backup", "Copy a store whole, its write-ahead log included", kBackupResult, run_backup);
  command.argument("NEWFOLDER", options.to, "the folder to make, which holds the copy");
}

}  // namespace corvan_tool
