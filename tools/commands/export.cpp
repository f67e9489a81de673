#include <fmt/format.h>

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
#include "tools/platform/terminal.h"
#include "tools/store/pending_output.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

struct ExportOptions {
  std::string folder;
  std::vector<std::string> session_ids;    // empty: all
  std::vector<Corvan::SessionType> types;  // empty: all
  std::string format;
  std::string output;  // empty: standard output
  bool json = false;

  bool is_html() const { return format == "html"; }
};

void require_output_place(const ExportOptions& options) {
  if (!options.output.empty()) return;
  if (options.is_html()) {
    throw ToolError("--format html makes a folder of pages: name it with --output");
  }
  if (options.json) {
    throw ToolError(
        "--json reports on the export, but the export itself goes to standard output: name a file "
        "for the export with --output");
  }
}

// An empty path is standard output.
void export_one_file(const ExportSource& source, const std::string& format, const std::string& path,
                     ExportCounts& counts) {
  ExportOutput output(path, ExportOutput::kPresent, counts);
  if (format == "jsonl") {
    export_jsonl(source, output, counts);
    return;
  }
  const bool is_shown = path.empty() && is_output_on_terminal();
  export_csv(source, output, is_shown ? CsvReader::kTerminal : CsvReader::kProgram, counts);
}

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
  const std::string pages =
      options.is_html() ? fmt::format(" in {} pages; open index.html", counts.files) : "";
  std::cout << fmt::format("{}: {} conversations, {} messages, {}{}; {} s\n",
                           printable(options.output), counts.sessions, counts.messages,
                           size_text(counts.bytes), pages, seconds_text(seconds));
}

void export_to_place(const ExportOptions& options) {
  const Stopwatch stopwatch;
  ExportCounts counts;
  PendingOutput place = options.is_html() ? PendingOutput::folder(options.output)
                                          : PendingOutput::file(options.output);
  const ExportSource source(options.folder, options.session_ids, options.types);
  if (options.is_html()) {
    export_html(source, place.path(), counts);
  } else {
    export_one_file(source, options.format, place.path(), counts);
  }
  place.keep();
  report(options, source.is_partial(), counts, stopwatch.seconds());
  require_output("the export is in " + options.output);
}

int run_export(const ExportOptions& options) {
  require_output_place(options);
  if (!options.output.empty()) {
    export_to_place(options);
    return kOk;
  }
  const ExportSource source(options.folder, options.session_ids, options.types);
  ExportCounts counts;
  export_one_file(source, options.format, "", counts);
  return kOk;
}

constexpr const char* kExportResult =
    "  jsonl  all columns of all rows, for 'corvan restore' and for programs; text that is not\n"
    "         UTF-8, numbers of 64 bits and all other values survive unchanged\n"
    "  csv    the messages with the titles of their conversations, for spreadsheets; a text that a\n"
    "         spreadsheet would treat as a formula gets an apostrophe; open the file with the import\n"
    "         dialog: comma as separator, UTF-8, all columns as text; on a terminal, control\n"
    "         characters are shown as escapes\n"
    "  html   pages for a browser, without scripts and network access; --output names the folder\n"
    "Without SESSION and --type, everything is exported, also messages without a conversation.\n"
    "Partial exports omit sync times, because those claim completeness. PLACE must not exist; it is\n"
    "created only when the export is complete. Without --output, the export goes to standard output.\n"
    "With --json and --output: an object with format, output, partial, sessions, messages, files,\n"
    "bytes and seconds.\n";

}  // namespace

void add_export(CommandLine& line) {
  auto [command, options] =
      line.add<ExportOptions>("export", "Write a store's content as JSON Lines, CSV or HTML pages",
                              kExportResult, run_export);
  command.arguments("SESSION", options.session_ids,
                    "export only the conversations with these ids, of all types unless --type is "
                    "given",
                    Presence::kOptional);
  command.choice("--format", "F", options.format, {"jsonl", "csv", "html"},
                 "jsonl, csv or html (required)");
  command.types(options.types, "export only conversations of this type; may be repeated: ");
  command.option("--output", "PLACE", options.output,
                 "the file to create, or for html the folder; it must not exist");
}

}  // namespace corvan_tool
