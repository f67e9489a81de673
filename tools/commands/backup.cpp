#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/connection.h"
#include "tools/store/pending_output.h"
#include "tools/store/sqlite_errors.h"
#include "tools/store/store_copy.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

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
  int64_t log_bytes = 0;  // of the store's write-ahead log, which a sound copy contains
  int64_t messages = 0;
  int64_t sessions = 0;
  std::string damage;  // SQLite's text; empty for a sound store
};

// Moves the log of a copy into its file and counts its rows. Returns false, with `backup.damage`,
// if the copy is damaged. Throws ToolError with `place` as the copy's name if it fails for another
// reason, for example lack of room.
bool settle(const std::string& file, const std::string& place, Backup& backup) {
  const Connection connection(file);
  const StatementProgress progress(connection.handle(), "million steps of the check");
  std::string findings;
  const auto into = [](int64_t& number) {
    return [&number](const Row& row) { number = row.int64(0); };
  };
  int rc = connection.each_row("pragma integrity_check(1)",
                               [&findings](const Row& row) { findings = row.text(0); });
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
  PendingOutput folder = PendingOutput::folder(options.to);
  const std::string file = store_file(folder.path());
  Backup backup;
  backup.file = store_file(options.to);
  backup.log_bytes = copy_store(options.folder, file).log;

  // The check may change the copy. A damaged store is copied again, to be kept as it was found.
  backup.damage = damage_of_store(file, store_file(options.folder));
  const bool sound = backup.damage.empty() && settle(file, options.to, backup);
  if (!sound) copy_store(options.folder, file);
  std::filesystem::remove(file + kIndexSuffix);  // created by the check
  backup.bytes = store_sizes(file).file;
  folder.keep();
  print(backup, options.json);
  require_output("the backup is in " + options.to);
  return sound ? kOk : kNegative;
}

constexpr const char* kBackupResult =
    "NEWFOLDER must not exist. The copy is consistent even while a client writes to the store. It is\n"
    "one file that includes the content of the write-ahead log, and is checked before it is kept. A\n"
    "damaged store is copied as it is, with its log, and the command reports the damage.\n"
    "To restore a backup, put its file into the store's folder while no client has the store open,\n"
    "and remove corvan-wal and corvan-shm there.\n"
    "With --json: an object with ok, file, bytes, log_bytes (of the store's log), messages, sessions\n"
    "(both null for a damaged store) and damage (null, or SQLite's text).\n"
    "Exit status 1 if the store is damaged.\n";

}  // namespace

void add_backup(CommandLine& line) {
  auto [command, options] = line.add<BackupOptions>(
      "backup", "Copy a whole store, including its write-ahead log", kBackupResult, run_backup);
  command.argument("NEWFOLDER", options.to, "the folder to create for the copy");
}

}  // namespace corvan_tool
