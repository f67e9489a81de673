#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/platform/file_system.h"
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

// Checks the copy. If it is sound, moves its log into its file and counts its rows. Returns
// SQLITE_DONE, or the code of the failure.
int check_and_count(const Connection& connection, std::string& findings, Backup& backup) {
  const auto into = [](int64_t& number) {
    return [&number](const Row& row) { number = row.int64(0); };
  };
  int rc = connection.each_row("pragma integrity_check(1)",
                               [&findings](const Row& row) { findings = row.text(0); });
  if (rc != SQLITE_DONE || findings != "ok") return rc;
  rc = connection.run("pragma wal_checkpoint(truncate)");
  if (rc != SQLITE_DONE) return rc;
  rc = connection.each_row("select count(*) from t_message", into(backup.messages));
  if (rc != SQLITE_DONE) return rc;
  return connection.each_row("select count(*) from t_session", into(backup.sessions));
}

// Completes the copy, or returns its damage. Throws ToolError with `place` as the copy's name if
// that fails for another reason, for example lack of room.
std::string complete_copy(const std::string& file, const std::string& place, Backup& backup) {
  const Connection connection(file);
  const StatementProgress progress(connection.handle(), "million steps of the check");
  std::string findings;
  const int rc = check_and_count(connection, findings, backup);
  if (rc == SQLITE_DONE) return findings == "ok" ? "" : findings;
  if (is_damage(rc)) return connection.error();
  throw ToolError(place + ": the copy cannot be completed: " + connection.error() +
                  "; nothing was kept; make room for the copy");
}

void print_backup_json(const Backup& backup) {
  const bool sound = backup.damage.empty();
  print_json({{"ok", sound},
              {"file", backup.file},
              {"bytes", backup.bytes},
              {"log_bytes", backup.log_bytes},
              {"messages", sound ? Json(backup.messages) : Json(nullptr)},
              {"sessions", sound ? Json(backup.sessions) : Json(nullptr)},
              {"damage", sound ? Json(nullptr) : Json(backup.damage)}});
}

void print_backup(const Backup& backup) {
  if (!backup.damage.empty()) {
    std::cout << fmt::format(
        "{}: damaged ({}); copied as it is, with its log; 'corvan salvage' rescues what can be "
        "read\n",
        printable(backup.file), printable(backup.damage));
    return;
  }
  std::cout << fmt::format(
      "{}: {} messages, {} conversations, {}; sound; {}\n", printable(backup.file), backup.messages,
      backup.sessions, size_text(backup.bytes),
      backup.log_bytes > 0 ? "the write-ahead log is in it" : "there was no write-ahead log");
}

// The check of the copy may have created it.
void remove_index_of_log(const std::string& file) {
  const int error = remove_file(file + kIndexSuffix);
  if (error == 0 || error == ENOENT) return;
  throw ToolError(file + kIndexSuffix + ": " + std::strerror(error));
}

Backup make_backup(const BackupOptions& options) {
  PendingOutput folder = PendingOutput::folder(options.to);
  const std::string file = store_file(folder.path());
  Backup backup;
  backup.file = store_file(options.to);
  backup.log_bytes = copy_store(options.folder, file).log;

  // The check may change the copy. A damaged store is copied again, to be kept as it was found.
  backup.damage = damage_of_store(file, store_file(options.folder));
  if (backup.damage.empty()) backup.damage = complete_copy(file, options.to, backup);
  if (!backup.damage.empty()) copy_store(options.folder, file);
  remove_index_of_log(file);
  backup.bytes = store_sizes(file).file;
  folder.keep();
  return backup;
}

int run_backup(const BackupOptions& options) {
  const Backup backup = make_backup(options);
  if (options.json) {
    print_backup_json(backup);
  } else {
    print_backup(backup);
  }
  require_output("the backup is in " + options.to);
  return backup.damage.empty() ? kOk : kNegative;
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
