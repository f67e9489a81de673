#include "tools/salvage/salvage.h"

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/ui/error.h"
#include "tools/ui/output.h"

namespace corvan_tool {

namespace {

constexpr const char* kSalvageHelp =
    "DAMAGED is a store's folder, or its file under any name. Its write-ahead log is read as well,\n"
    "even if the file itself is gone. Neither is changed.\n"
    "NEWFOLDER receives a store with every row that can be read, under its own id. Rows are found\n"
    "through the tables' trees, and on pages that a damaged tree no longer leads to.\n"
    "Conversations whose rows are lost are made from index entries and messages, and are counted\n"
    "both as lost and as made.\n"
    "Doubtful rows are left out unless --doubtful is given: rows that were probably deleted, rows\n"
    "with different versions, and rows with values that they cannot have.\n"
    "A log that belongs to another store hides the file's own rows. The output says if the log does\n"
    "not fit the file; --without-log then reads the file alone.\n"
    "Tables and columns that are not part of a message store are named and left out.\n"
    "LOST counts rows that indexes or partly readable pages still name. A second number is the most\n"
    "that may be lost, if that is known.\n"
    "Exit status: 0 if everything was recovered; 1 if rows are or may be lost, or are doubtful, or\n"
    "if nothing could be recovered, in which case NEWFOLDER is not made; 2 on failure.\n"
    "With --json: an object with file; folder (null if it was not made); tables, an object by\n"
    "name of objects with recovered, from_log, lost_at_least, lost_at_most (null if unknown),\n"
    "doubtful, doubtful_by (an object: deleted, unreached, log, versions, place, text, value), taken,\n"
    "made; largest_id (the largest message id assigned so far, or null); page_size, pages,\n"
    "declared_pages, header_ok; bad_pages, an array of objects with first, last, what; zero_pages;\n"
    "left_out, an array of names; log, an object with read, pages, used, unusable, damaged, cut,\n"
    "fits; seconds.\n";

int run_salvage(const SalvageOptions& options) {
  const SalvageReport report = Salvage(options).run();
  if (options.json) {
    print_salvage_json(report);
  } else {
    print_salvage_text(report);
  }
  if (report.is_kept) require_output("the new store is in " + options.folder);
  return report.is_kept && report.is_lossless() ? kOk : kNegative;
}

}  // namespace

void add_salvage(CommandLine& line) {
  auto [command, options] = line.add_without_folder<SalvageOptions>(
      "salvage", "Rescue what is still readable in a damaged store", kSalvageHelp, run_salvage);
  command.argument("DAMAGED", options.damaged, "the store's folder, or its file");
  command.argument("NEWFOLDER", options.folder,
                   "the folder to create for the new store; it must not exist");
  command.flag("--doubtful", options.doubtful, "recover doubtful rows as well");
  command.flag("--without-log", options.without_log,
               "do not read the write-ahead log, for example because it is another store's");
}

}  // namespace corvan_tool
