#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/export/csv.h"
#include "tools/export/html/index.h"
#include "tools/export/jsonl.h"
#include "tools/export/output.h"
#include "tools/export/selection.h"
#include "tools/store/pending_output.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

struct ExportOptions {
  std::string folder;
  std::vector<std::string> session_ids;    // none: all
  std::vector<Corvan::SessionType> kinds;  // none: all
  std::string format;
  std::string output;  // empty: standard output
  bool json = false;
};

void export_one_file(const ExportSource& source, const std::string& format, const std::string& path,
                     ExportCounts& counts) {
  ExportOutput output(path, ExportOutput::kPresent, counts);
  if (format == "csv") {
    const bool is_shown = path.empty() && isatty(STDOUT_FILENO) != 0;
    export_csv(source, output, is_shown ? CsvReader::kTerminal : CsvReader::kProgram, counts);
  } else {
    export_jsonl(source, output, counts);
  }
}

// Tells what was written to a place of the user's choice.
void report(const ExportOptions& options, bool is_partial, const ExportCounts& counts,
            double seconds) {
  if (options.json) {
    print_json({{"format", options.format},
                {"output", options.output},
                {"partial", is_partial},
                {"sessions", counts.sessions},
                {"messages", counts.messages},
                {"files", counts.files},
                {"bytes", counts.bytes},
                {"seconds", seconds}});
    return;
  }
  std::cout << printable(options.output) << ": " << counts.sessions << " conversations, "
            << counts.messages << " messages, " << size_text(counts.bytes);
  if (options.format == "html") std::cout << " in " << counts.files << " pages; open index.html";
  std::cout << "; " << seconds_text(seconds) << " s\n";
}

int run_export(const ExportOptions& options) {
  const Clock::time_point start = Clock::now();
  const bool is_html = options.format == "html";
  if (options.output.empty() && is_html) {
    throw ToolError("--format html makes a folder of pages: name it with --output");
  }
  if (options.output.empty() && options.json) {
    throw ToolError(
        "--json tells what was exported, and standard output takes the export: name a "
        "file for that with --output");
  }

  ExportCounts counts;
  if (options.output.empty()) {
    const ExportSource source(options.folder, options.session_ids, options.kinds);
    export_one_file(source, options.format, "", counts);
    return kOk;
  }
  Unfinished place =
      is_html ? Unfinished::folder(options.output) : Unfinished::file(options.output);
  const ExportSource source(options.folder, options.session_ids, options.kinds);
  if (is_html) {
    export_html(source, place.path(), counts);
  } else {
    export_one_file(source, options.format, place.path(), counts);
  }
  place.keep();
  report(options, source.is_partial(), counts,
         std::chrono::duration<double>(Clock::now() - start).count());
  require_output("the export is in " + options.output);
  return kOk;
}

constexpr const char* kExportResult =
    "  jsonl  every column of every row, for 'corvan restore' and for programs: text that is not\n"
    "         UTF-8, numbers of 64 bits and whatever else a row holds come back as they were\n"
    "  csv    the messages with their conversation's title, for spreadsheets; what a spreadsheet\n"
    "         would take for a formula gets an apostrophe in front; open it by the import dialog,\n"
    "         with a comma as separator, UTF-8 and columns as text; on a terminal, control\n"
    "         characters are escapes\n"
    "  html   pages to read in a browser, without network and scripts; --output names the folder\n"
    "Without SESSION and --type everything is exported, messages without a conversation included.\n"
    "An export of chosen conversations holds no sync times. What is at PLACE already is left alone\n"
    "and is an error; PLACE comes to be when the export is complete. Without --output the export\n"
    "goes to standard output.\n"
    "With --json and --output: an object with format, output, partial, sessions, messages, files,\n"
    "bytes and seconds.\n";

}  // namespace

void add_export(CommandLine& line) {
  auto [command, options] = line.add<ExportOptions>(
      "export", "Write a store's content as JSON Lines, CSV or pages to read", kExportResult,
      run_export);
  command.arguments("SESSION", options.session_ids,
                    "only the conversations of these ids, of all kinds unless --type is given",
                    Presence::kOptional);
  command.choice("--format", "F", options.format, {"jsonl", "csv", "html"},
                 "jsonl, csv or html (required)");
  command.kinds(options.kinds, "only conversations of this kind, may be given again: ");
  command.option("--output", "PLACE", options.output,
                 "the file, or for html the folder, to make; nothing may be there");
}

}  // namespace corvan_tool
