#include <fmt/format.h>

#include <cstddef>
#include <iostream>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/import/export_reader.h"
#include "tools/import/restored_store.h"
#include "tools/store/export_format.h"
#include "tools/store/pending_output.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

struct RestoreOptions {
  std::string file;  // "-" is standard input
  std::string folder;
  bool json = false;
};

void restore(ExportReader& reader, const std::string& folder) {
  PendingOutput place = PendingOutput::folder(folder);
  {
    RestoredStore store(store_file(place.path()), folder, reader.header().user_version);
    Progress progress("records", reader.announced());
    reader.read_into(store, [&progress] { progress.advance(); });
    store.finish();
  }
  place.keep();
}

void report_as_json(const ExportReader& reader, double seconds) {
  Json result = {{"partial", reader.header().is_partial}};
  const std::vector<ExportTable>& tables = export_tables();
  for (std::size_t i = 0; i < tables.size(); ++i) result[tables[i].count] = reader.counts()[i];
  result["seconds"] = seconds;
  print_json(result);
}

void report_as_text(const ExportReader& reader, const std::string& folder, double seconds) {
  std::cout << fmt::format("{}: {} conversations, {} messages; {} s\n", printable(folder),
                           reader.counts()[kSessions], reader.counts()[kMessages],
                           seconds_text(seconds));
  if (reader.header().is_partial) {
    std::cout << "a partial export: it contains only some conversations, and no sync times\n";
  }
}

int run_restore(const RestoreOptions& options) {
  const Stopwatch stopwatch;
  ExportReader reader(options.file);
  restore(reader, options.folder);
  const double seconds = stopwatch.seconds();
  if (options.json) {
    report_as_json(reader, seconds);
  } else {
    report_as_text(reader, options.folder, seconds);
  }
  require_output("the store is in " + options.folder);
  return kOk;
}

constexpr const char* kRestoreResult =
    "FILE is the output of 'corvan export --format jsonl'; - is standard input. The new store has\n"
    "all rows of the export, with their ids, and the indexes of a new store. Every line is checked.\n"
    "It is an error if a key is unknown, missing or given twice, if a value does not fit its column,\n"
    "if an id occurs twice, if the number of records differs from the one in the first or the last\n"
    "line, or if the last line is missing. The error names the line, and nothing is left behind.\n"
    "A partial export gives a store with the exported conversations only.\n"
    "With --json: an object with partial, versions, syncs, sessions, messages, sequences (the numbers\n"
    "of rows) and seconds.\n";

}  // namespace

void add_restore(CommandLine& line) {
  auto [command, options] = line.add_without_folder<RestoreOptions>(
      "restore", "Make a store from an export in JSON Lines", kRestoreResult, run_restore,
      KeyAge::kNew);
  command.argument("FILE", options.file, "the export; - for standard input");
  command.argument("NEWFOLDER", options.folder,
                   "the folder to create for the store; it must not exist");
}

}  // namespace corvan_tool
