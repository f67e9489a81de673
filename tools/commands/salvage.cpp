#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/salvage/damaged_file.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescued_store.h"
#include "tools/salvage/tree_walk.h"
#include "tools/store/pending_output.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kShownBadPages = 20;

struct SalvageOptions {
  std::string damaged;
  std::string folder;
  bool doubtful = false;
  bool without_log = false;
  bool json = false;
};

struct SalvageReport {
  std::string file;
  std::size_t page_size = 0;
  PageNumber pages = 0;
  PageNumber declared_pages = 0;
  bool header_is_sound = false;
  DamagedFile::Log log;
  bool log_is_read = true;
  std::vector<BadPages> bad_pages;
  std::uint64_t zero_pages = 0;
  std::vector<std::string> left_out;
  std::vector<std::string> names;  // of the tables; one a result
  std::vector<TableResult> results;
  std::optional<std::int64_t> sequence;
  bool is_kept = false;
  double seconds = 0;

  template <typename Count>
  std::int64_t sum(const Count& count) const {
    std::int64_t total = 0;
    for (const TableResult& result : results) total += count(result);
    return total;
  }
  std::int64_t recovered() const {
    return sum([](const TableResult& result) { return result.recovered + result.taken; });
  }
  std::int64_t doubtful() const {
    return sum([](const TableResult& result) { return result.all_doubtful(); });
  }
  // Whether it tells what became of every row.
  bool log_is_whole() const { return !log.damaged && !log.cut && log.fits; }
  bool is_lossless() const {
    return log_is_whole() && doubtful() == 0 &&
           std::all_of(results.begin(), results.end(), [](const TableResult& result) {
             return result.lost == 0 && result.lost_at_most == 0;
           });
  }
};

// The file that is meant: itself, or the one in its folder; it may be missing where its log is
// there. The log lies beside the file itself, not beside a link to it.
std::string path_of_damaged(const SalvageOptions& options) {
  namespace fs = std::filesystem;
  const std::string& damaged = options.damaged;
  std::error_code error;
  const std::string file = fs::is_directory(damaged, error) ? store_file(damaged) : damaged;
  const fs::path real = fs::canonical(file, error);
  if (!error) return real.string();
  const std::string why = error.message();
  constexpr std::string_view kEnd = "-wal";
  std::string log = fs::canonical(file + std::string(kEnd), error).string();
  if (error || options.without_log || log.size() <= kEnd.size()) {
    throw ToolError(file + ": " + why + "; name the store's folder or file");
  }
  log.resize(log.size() - kEnd.size());
  return log;
}

SalvageReport salvage(const SalvageOptions& options) {
  const Clock::time_point start = Clock::now();
  SalvageReport report;
  report.file = path_of_damaged(options);
  const DamagedFile file(report.file, !options.without_log);
  const SalvageSchema schema = salvage_schema();
  Unfinished made = Unfinished::folder(options.folder);
  SalvageStore store(schema, made.path(), options.folder);
  SalvageWalk walk(file, schema, store);
  walk.run();
  if (file.has_changed()) {
    throw ToolError(report.file + ": written to meanwhile; end its client and try again");
  }
  report.log = file.log();
  if (walk.log_contradicts()) report.log.fits = false;
  report.results = store.finish(walk.states(), options.doubtful, report.log_is_whole());
  report.results.resize(schema.sequences);
  for (std::size_t i = 0; i < schema.sequences; ++i) report.names.push_back(schema.tables[i].name);
  report.page_size = file.page_size();
  report.pages = file.page_count();
  report.declared_pages = file.declared_pages();
  report.header_is_sound = file.header_is_sound();
  report.log_is_read = !options.without_log;
  report.left_out = walk.left_out();
  report.bad_pages = walk.bad_pages();
  report.zero_pages = walk.zero_pages();
  report.sequence = store.sequence();
  report.is_kept = report.recovered() > 0;
  if (report.is_kept) {
    made.keep();
  } else {
    for (TableResult& result : report.results) result.made = 0;
  }
  report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return report;
}

std::string lost_text(const TableResult& result) {
  std::string least = std::to_string(result.lost);
  if (!result.lost_at_most) return result.lost == 0 ? "unknown" : least + " or more";
  if (*result.lost_at_most == result.lost) return least;
  return least + " to " + std::to_string(*result.lost_at_most);
}

void print_tables(const SalvageReport& report) {
  TextTable table({{"TABLE"},
                   {"RECOVERED", TextTable::kRight},
                   {"FROM LOG", TextTable::kRight},
                   {"LOST", TextTable::kRight},
                   {"DOUBTFUL", TextTable::kRight},
                   {"TAKEN", TextTable::kRight},
                   {"MADE", TextTable::kRight}});
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    const TableResult& result = report.results[i];
    table.add({report.names[i], std::to_string(result.recovered), std::to_string(result.from_log),
               lost_text(result), std::to_string(result.all_doubtful()),
               std::to_string(result.taken), std::to_string(result.made)});
  }
  table.print(std::cout, 0);
}

void print_pages(const SalvageReport& report) {
  if (!report.header_is_sound) std::cout << "the file's header is damaged\n";
  if (report.declared_pages > report.pages) {
    std::cout << "the file is cut off: " << report.pages << " of " << report.declared_pages
              << " pages are there\n";
  }
  std::uint64_t count = 0;
  for (const BadPages& pages : report.bad_pages)
    count += pages.last - pages.first + std::uint64_t{1};
  if (count > 0) std::cout << count << " bad pages of " << report.page_size << " bytes:\n";
  for (std::size_t i = 0; i < report.bad_pages.size() && i < kShownBadPages; ++i) {
    const BadPages& pages = report.bad_pages[i];
    std::cout << "  " << pages.first;
    if (pages.last > pages.first) std::cout << " to " << pages.last;
    std::cout << ": " << printable(pages.what) << '\n';
  }
  if (report.bad_pages.size() > kShownBadPages) {
    std::cout << "  ... and " << report.bad_pages.size() - kShownBadPages
              << " more lines, all of them with --json\n";
  }
  if (report.zero_pages > 0) {
    std::cout << report.zero_pages
              << " pages of zeros that nothing leads to: free ones, or lost ones\n";
  }
}

void print_log(const SalvageReport& report) {
  const DamagedFile::Log& log = report.log;
  if (!report.log_is_read) std::cout << "the log was not looked at\n";
  if (log.damaged) {
    std::cout << "the log is damaged: of " << log.frames << " pages in it " << log.used
              << " could be used, " << log.unusable << " belong to later commits, which are lost\n";
  } else if (log.used < log.frames) {
    std::cout << log.used << " of " << log.frames
              << " pages of the log were used; the rest end no commit\n";
  } else if (log.used > 0) {
    std::cout << log.used << " pages of the log were used\n";
  }
  if (log.cut) std::cout << "the log is cut off: commits may be lost, more than can be told\n";
  if (!log.fits) {
    std::cout << "the log does not fit the file: the file was cut off, or the log is of another "
                 "store; try --without-log as well, and compare\n";
  }
}

void print_left_out(const SalvageReport& report) {
  if (report.left_out.empty()) return;
  std::string list;
  for (const std::string& what : report.left_out) {
    if (!list.empty()) list += ", ";
    list += what;
  }
  std::cout << "left out, since it is no part of a message store: " << printable(list) << '\n';
}

// What was seen of the file beside its rows.
void print_file(const SalvageReport& report) {
  print_pages(report);
  print_log(report);
  print_left_out(report);
}

// A file's name as a shell and this program take it for an argument.
std::string as_argument(const std::string& name) {
  const auto is_plain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+,:@%").find(c) != std::string_view::npos;
  };
  std::string path = name[0] == '-' ? "./" + name : name;
  if (std::all_of(path.begin(), path.end(), is_plain)) return path;
  std::string quoted = "'";
  for (const char c : path) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

void print_doubtful(const SalvageReport& report, bool are_taken) {
  if (report.doubtful() == 0) return;
  std::cout << report.doubtful() << " doubtful rows"
            << (are_taken ? "" : ", left out (--doubtful takes them)") << ":\n";
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    for (std::size_t doubt = 1; doubt < kDoubts; ++doubt) {
      const std::int64_t count = report.results[i].doubtful.at(doubt);
      if (count == 0) continue;
      std::cout << "  " << count << " of " << report.names[i] << ' '
                << doubt_text(static_cast<Doubt>(doubt)) << '\n';
    }
  }
}

void print_text(const SalvageReport& report, const SalvageOptions& options) {
  std::cout << "from " << printable(report.file) << '\n';
  if (!report.is_kept) {
    print_file(report);
    print_doubtful(report, options.doubtful);
    std::cout << "nothing could be recovered; " << printable(options.folder)
              << " was not made\nnext: salvage another copy of the file, or go back to a backup\n";
    return;
  }
  print_tables(report);
  print_file(report);
  print_doubtful(report, options.doubtful);
  std::cout << "made " << printable(options.folder) << "; " << seconds_text(report.seconds)
            << " s\nnext: corvan verify " << printable(as_argument(options.folder))
            << " --repair counters,latest,times\n";
}

Json table_json(const TableResult& result) {
  Json doubtful_by = Json::object();
  for (std::size_t doubt = 1; doubt < kDoubts; ++doubt) {
    const std::int64_t count = result.doubtful.at(doubt);
    if (count > 0) doubtful_by[doubt_word(static_cast<Doubt>(doubt))] = count;
  }
  return {{"recovered", result.recovered},
          {"from_log", result.from_log},
          {"lost_at_least", result.lost},
          {"lost_at_most", result.lost_at_most ? Json(*result.lost_at_most) : Json(nullptr)},
          {"doubtful", result.all_doubtful()},
          {"doubtful_by", std::move(doubtful_by)},
          {"taken", result.taken},
          {"made", result.made}};
}

void print_report_json(const SalvageReport& report, const SalvageOptions& options) {
  Json bad_pages = Json::array();
  for (const BadPages& pages : report.bad_pages) {
    bad_pages.push_back({{"first", pages.first}, {"last", pages.last}, {"what", pages.what}});
  }
  Json left_out = Json::array();
  for (const std::string& what : report.left_out) left_out.push_back(printable(what));
  Json tables = Json::object();
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    tables[report.names[i]] = table_json(report.results[i]);
  }
  print_json({{"file", report.file},
              {"folder", report.is_kept ? Json(options.folder) : Json(nullptr)},
              {"tables", std::move(tables)},
              {"largest_id", report.sequence ? Json(*report.sequence) : Json(nullptr)},
              {"page_size", report.page_size},
              {"pages", report.pages},
              {"declared_pages", report.declared_pages},
              {"header_ok", report.header_is_sound},
              {"bad_pages", std::move(bad_pages)},
              {"zero_pages", report.zero_pages},
              {"left_out", std::move(left_out)},
              {"log",
               {{"read", report.log_is_read},
                {"pages", report.log.frames},
                {"used", report.log.used},
                {"unusable", report.log.unusable},
                {"damaged", report.log.damaged},
                {"cut", report.log.cut},
                {"fits", report.log.fits}}},
              {"seconds", report.seconds}});
}

int run_salvage(const SalvageOptions& options) {
  const SalvageReport report = salvage(options);
  if (options.json) {
    print_report_json(report, options);
  } else {
    print_text(report, options);
  }
  if (report.is_kept) require_output("the new store is in " + options.folder);
  return report.is_kept && report.is_lossless() ? kOk : kNegative;
}

constexpr const char* kSalvageResult =
    "DAMAGED is a store's folder, or its file under any name; its write-ahead log is read as well,\n"
    "even where the file itself is gone.\n"
    "Nothing is written to or beside it. NEWFOLDER receives a store with every row that can be read,\n"
    "under its own id: what the trees of the tables lead to, and what lies on pages that a damaged\n"
    "one no longer leads to. Conversations whose rows are lost are made from index entries and\n"
    "messages, and are counted as lost and as made. Doubtful rows are left out unless --doubtful is\n"
    "given: those that seem to have been deleted, of which there are different versions, or whose\n"
    "values cannot be theirs. A log of another store hides the file's own rows; the output says when\n"
    "one does not fit, and --without-log takes the file as it stands. Tables and columns that are no\n"
    "part of a message store are named and left out.\n"
    "LOST counts rows that indexes or broken pages still name; a second number is the most that\n"
    "may be lost, where that can be told.\n"
    "Exit status: 0 when all was recovered; 1 when rows are or may be lost, or are doubtful, or\n"
    "nothing could be recovered, and then NEWFOLDER is not made; 2 on failure.\n"
    "With --json: an object with file; folder (null when it was not made); tables, an object by\n"
    "name of objects with recovered, from_log, lost_at_least, lost_at_most (null when unknown),\n"
    "doubtful, doubtful_by (an object: deleted, unreached, log, versions, place, text, value), taken,\n"
    "made; largest_id (the largest message id given so far, or null); page_size, pages,\n"
    "declared_pages, header_ok; bad_pages, an array of objects with first, last, what; zero_pages;\n"
    "left_out, an array of names; log, an object with read, pages, used, unusable, damaged, cut,\n"
    "fits; seconds.\n";

}  // namespace

void add_salvage(CommandLine& line) {
  auto [command, options] = line.add_without_folder<SalvageOptions>(
      "salvage", "Bring what can still be read in a damaged store into a new one", kSalvageResult,
      run_salvage);
  command.argument("DAMAGED", options.damaged, "the store's folder, or its file");
  command.argument("NEWFOLDER", options.folder,
                   "the folder to make for the new store; nothing may be there");
  command.flag("--doubtful", options.doubtful, "take doubtful rows as well");
  command.flag("--without-log", options.without_log,
               "leave the write-ahead log aside, as when it is another store's");
}

}  // namespace corvan_tool
