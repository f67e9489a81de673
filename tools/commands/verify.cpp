#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/verify/repair.h"
#include "tools/verify/report.h"

namespace corvan_tool {

namespace {

Report look(const std::string& folder) {
  const Snapshot store(folder, Snapshot::kAccepted);
  if (!store.damage().empty()) return damaged_file(store.damage());
  return look_at_all(store.connection(), store.name());
}

int run_verify(const RepairOptions& options) {
  if (!options.what.empty()) return run_repair(options);
  const Report report = look(options.folder);
  if (options.json) {
    print_report_json(report);
  } else {
    print_report(report);
  }
  return report.found_any() ? kNegative : kOk;
}

constexpr const char* kVerifyResult =
    "First the file: SQLite's integrity check, tables, indexes, version and settings against those\n"
    "of a new store. Then each row: codes and types, counters against what the messages since the\n"
    "last clearing come to, latest_id and session_time against the messages, duplicates, times,\n"
    "sync marks.\n"
    "A finding is impossible, when no sequence of operations leaves it in a store that this library\n"
    "made; or allowed, when they can leave it though it disagrees with what it stands for. Notes are\n"
    "what ordinary use passes through, as failed sends or messages saved with is_count=false. Each\n"
    "tells the operations that can leave it, and the word of --repair that mends it.\n"
    "--repair counters sets unread_count and mention_count to a recount: one that is below the\n"
    "messages that came in order since the last clearing to these, one that is more than all can\n"
    "come to, to all that came since; latest sets latest_id and session_time to the newest message;\n"
    "times sets session_time to the time of the message that latest_id names; indexes does what\n"
    "'corvan index' does; sequence keeps ids from being given again. Only what verify tells changes,\n"
    "notes included; each change names its finding. The store as it was is copied first, to\n"
    "FOLDER.before-repair-TIME unless --backup names a folder. All is done in one transaction, or\n"
    "nothing. A client may have the store open, but what it saves meanwhile fails. A store that is\n"
    "damaged, or locked for two seconds, is an error.\n"
    "With --json: an object with ok, damaged, complete (all rows could be read), sessions, messages,\n"
    "impossible, allowed, note (numbers), and findings: an array of objects with code, class, text,\n"
    "operations, explanation and rows: an array of objects with session_id, session_type (both null\n"
    "outside a conversation), name, messages (ids), stored, derived (null when unknown) and repair\n"
    "(null, or the word). With --repair: an object with dry_run, backup (null, or the folder),\n"
    "changes: an array of objects with repair, finding (its code), session_id, session_type, name,\n"
    "old and new; and left: an array of objects with repair, session_id, session_type, name and reason.\n"
    "Exit status 1 when something is impossible or allowed; notes alone are 0. With --repair: 1 when\n"
    "something was left that the words stand for, because it cannot be judged; otherwise 0.\n";

}  // namespace

void add_verify(CommandLine& line) {
  auto [command, options] = line.add<RepairOptions>(
      "verify", "Look for what is wrong in a store, and mend what can be derived", kVerifyResult,
      run_verify);
  const Command::Option repair = command.choices(
      "--repair", "WHAT", options.what, {kCounters, kLatest, kTimes, kIndexes, kSequence},
      "mend these instead: counters, latest, times, indexes, sequence, separated by commas");
  const Command::Option backup =
      command.option("--backup", "NEWFOLDER", options.backup,
                     "the folder to make for the store as it was (default: beside the store's)");
  const Command::Option dry_run = command.flag(
      "--dry-run", options.dry_run, "only tell what would be changed, tried on a temporary copy");
  Command::need(backup, repair);
  Command::need(dry_run, repair);
  Command::exclude(dry_run, backup);
}

}  // namespace corvan_tool
