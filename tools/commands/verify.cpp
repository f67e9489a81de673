#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/verify/repair/repair.h"
#include "tools/verify/report.h"

namespace corvan_tool {

namespace {

Report check(const std::string& folder) {
  const Snapshot store(folder, Snapshot::kAccepted);
  if (!store.damage().empty()) return report_damage(store.damage());
  return check_store(store.connection(), store.name());
}

int run_verify(const RepairOptions& options) {
  if (!options.what.empty()) return run_repair(options);
  const Report report = check(options.folder);
  if (options.json) {
    print_report_json(report);
  } else {
    print_report(report);
  }
  return report.found_any() ? kNegative : kOk;
}

constexpr const char* kVerifyResult =
    "First the file is checked: SQLite's integrity check, and tables, indexes, version and settings\n"
    "against those of a new store. Then each row is checked: codes and types, counters against the\n"
    "messages since the last clearing, latest_id and session_time against the messages, duplicates,\n"
    "times, sync marks.\n"
    "A finding is impossible if no sequence of operations leaves it in a store that this library\n"
    "made. It is allowed if operations can leave it although it contradicts other rows. It is a note\n"
    "if it is the result of ordinary use, such as a failed send or a message saved with\n"
    "is_count=false. Each kind of finding names the operations that can leave it, and the word of\n"
    "--repair that repairs it.\n"
    "--repair counters sets unread_count and mention_count to a recount. A counter below the number\n"
    "of messages that arrived in order since the last clearing is set to that number; a counter that\n"
    "is too high, to the number of all messages since then. latest sets latest_id and session_time\n"
    "to the newest message. times sets session_time to the time of the message that latest_id names.\n"
    "indexes does what 'corvan index' does. sequence keeps used ids from being assigned again. Only\n"
    "values with a finding change, including notes, and each change names its finding. The store is\n"
    "first copied to FOLDER.before-repair-TIME, or to the folder that --backup names. All changes are\n"
    "made in one transaction, or none. A client may have the store open, but its saves fail\n"
    "meanwhile. A store that is damaged, or locked for two seconds, is an error.\n"
    "With --json: an object with ok, damaged, complete (all rows could be read), sessions, messages,\n"
    "impossible, allowed, note (numbers), and findings: an array of objects with code, class, text,\n"
    "operations, explanation and rows: an array of objects with session_id, session_type (both null\n"
    "outside a conversation), name, messages (ids), stored, derived (null if unknown) and repair\n"
    "(null, or the word). With --repair: an object with dry_run, backup (null, or the folder),\n"
    "changes: an array of objects with repair, finding (its code), session_id, session_type, name,\n"
    "old and new; and left: an array of objects with repair, session_id, session_type, name and reason.\n"
    "Exit status 1 if a finding is impossible or allowed, 0 if there are only notes. With --repair: 1\n"
    "if a column was left because it cannot be checked, otherwise 0.\n";

}  // namespace

void add_verify(CommandLine& line) {
  auto [command, options] = line.add<RepairOptions>(
      "verify", "Find wrong rows, counters and schema parts, and repair them", kVerifyResult,
      run_verify);
  const Command::Option repair = command.choices(
      "--repair", "WHAT", options.what, {kRepairs.begin(), kRepairs.end()},
      "repair these instead: counters, latest, times, indexes, sequence, separated by commas");
  const Command::Option backup = command.option(
      "--backup", "NEWFOLDER", options.backup,
      "the folder to create for a copy of the original store (default: beside the store)");
  const Command::Option dry_run = command.flag(
      "--dry-run", options.dry_run, "only report what would be changed, tried on a temporary copy");
  Command::need(backup, repair);
  Command::need(dry_run, repair);
  Command::exclude(dry_run, backup);
}

}  // namespace corvan_tool
