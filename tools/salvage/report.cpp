#include "tools/salvage/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <string_view>
#include <utility>

#include "tools/ui/json.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kShownBadPages = 20;

std::string lost_text(const TableResult& result) {
  if (!result.lost_at_most) {
    return result.lost == 0 ? "unknown" : fmt::format("{} or more", result.lost);
  }
  if (*result.lost_at_most == result.lost) return fmt::format("{}", result.lost);
  return fmt::format("{} to {}", result.lost, *result.lost_at_most);
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
    table.add({report.tables[i], fmt::format("{}", result.recovered),
               fmt::format("{}", result.from_log), lost_text(result),
               fmt::format("{}", result.all_doubtful()), fmt::format("{}", result.taken),
               fmt::format("{}", result.made)});
  }
  table.print(std::cout, 0);
}

void print_bad_pages(const SalvageReport& report) {
  if (report.bad_pages.empty()) return;
  std::uint64_t count = 0;
  for (const BadPages& pages : report.bad_pages) {
    count += pages.last - pages.first + std::uint64_t{1};
  }
  std::cout << fmt::format("{} bad pages of {} bytes:\n", count, report.page_size);
  for (std::size_t i = 0; i < report.bad_pages.size() && i < kShownBadPages; ++i) {
    const BadPages& pages = report.bad_pages[i];
    const std::string to = pages.last > pages.first ? fmt::format(" to {}", pages.last) : "";
    std::cout << fmt::format("  {}{}: {}\n", pages.first, to, printable(pages.what));
  }
  if (report.bad_pages.size() > kShownBadPages) {
    std::cout << fmt::format("  ... and {} more lines; --json lists them all\n",
                             report.bad_pages.size() - kShownBadPages);
  }
}

void print_pages(const SalvageReport& report) {
  if (!report.header_is_sound) std::cout << "the file's header is damaged\n";
  if (report.declared_pages > report.pages) {
    std::cout << fmt::format("the file is cut off: {} of {} pages are left\n", report.pages,
                             report.declared_pages);
  }
  print_bad_pages(report);
  if (report.zero_pages > 0) {
    std::cout << fmt::format("{} pages of zeros that nothing points to: free or lost\n",
                             report.zero_pages);
  }
}

void print_log(const SalvageReport& report) {
  const WalSummary& log = report.log;
  if (!report.log_is_read) std::cout << "the log was not read\n";
  if (log.damaged) {
    std::cout << fmt::format(
        "the log is damaged: {} of its {} pages could be used; {} belong to later commits, which "
        "are lost\n",
        log.used, log.frames, log.unusable);
  } else if (log.used < log.frames) {
    std::cout << fmt::format(
        "{} of {} pages of the log were used; the rest belong to no complete commit\n", log.used,
        log.frames);
  } else if (log.used > 0) {
    std::cout << fmt::format("{} pages of the log were used\n", log.used);
  }
  if (log.cut) std::cout << "the log is cut off: an unknown number of commits may be lost\n";
  if (!log.fits) {
    std::cout << "the log does not fit the file: the file was cut off, or the log is from another "
                 "store; also try --without-log, and compare\n";
  }
}

void print_left_out(const SalvageReport& report) {
  if (report.left_out.empty()) return;
  std::cout << "left out, not part of a message store: "
            << printable(fmt::format("{}", fmt::join(report.left_out, ", "))) << '\n';
}

void print_doubtful(const SalvageReport& report) {
  if (report.doubtful() == 0) return;
  std::cout << fmt::format("{} doubtful rows{}:\n", report.doubtful(),
                           report.with_doubtful ? "" : ", left out (--doubtful takes them)");
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    for (std::size_t doubt = 1; doubt < kDoubts; ++doubt) {
      const std::int64_t count = report.results[i].doubtful.at(doubt);
      if (count == 0) continue;
      std::cout << fmt::format("  {} of {} {}\n", count, report.tables[i],
                               doubt_text(static_cast<Doubt>(doubt)));
    }
  }
}

bool is_plain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("/._-+,:@%").find(c) != std::string_view::npos;
}

// A file's name as it can be typed in a shell: quoted if necessary, and not like an option.
std::string as_argument(const std::string& name) {
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

void print_end(const SalvageReport& report) {
  if (!report.is_kept) {
    std::cout << fmt::format(
        "nothing could be recovered; {} was not made\n"
        "next: salvage another copy of the file, or restore a backup\n",
        printable(report.folder));
    return;
  }
  std::cout << fmt::format("made {}; {} s\nnext: corvan verify {} --repair counters,latest,times\n",
                           printable(report.folder), seconds_text(report.seconds),
                           printable(as_argument(report.folder)));
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

Json tables_json(const SalvageReport& report) {
  Json tables = Json::object();
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    tables[report.tables[i]] = table_json(report.results[i]);
  }
  return tables;
}

Json bad_pages_json(const SalvageReport& report) {
  Json bad_pages = Json::array();
  for (const BadPages& pages : report.bad_pages) {
    bad_pages.push_back({{"first", pages.first}, {"last", pages.last}, {"what", pages.what}});
  }
  return bad_pages;
}

Json left_out_json(const SalvageReport& report) {
  Json left_out = Json::array();
  for (const std::string& what : report.left_out) left_out.push_back(printable(what));
  return left_out;
}

Json log_json(const SalvageReport& report) {
  return {{"read", report.log_is_read},    {"pages", report.log.frames},
          {"used", report.log.used},       {"unusable", report.log.unusable},
          {"damaged", report.log.damaged}, {"cut", report.log.cut},
          {"fits", report.log.fits}};
}

}  // namespace

std::int64_t SalvageReport::recovered() const {
  std::int64_t total = 0;
  for (const TableResult& result : results) total += result.recovered + result.taken;
  return total;
}

std::int64_t SalvageReport::doubtful() const {
  std::int64_t total = 0;
  for (const TableResult& result : results) total += result.all_doubtful();
  return total;
}

bool SalvageReport::is_lossless() const {
  const auto lost_none = [](const TableResult& result) {
    return result.lost == 0 && result.lost_at_most == 0;
  };
  return is_whole(log) && doubtful() == 0 && std::all_of(results.begin(), results.end(), lost_none);
}

bool is_whole(const WalSummary& log) {
  return !log.damaged && !log.cut && log.fits;
}

void print_salvage_text(const SalvageReport& report) {
  std::cout << "from " << printable(report.file) << '\n';
  if (report.is_kept) print_tables(report);
  print_pages(report);
  print_log(report);
  print_left_out(report);
  print_doubtful(report);
  print_end(report);
}

void print_salvage_json(const SalvageReport& report) {
  print_json(Json{{"file", report.file},
                  {"folder", report.is_kept ? Json(report.folder) : Json(nullptr)},
                  {"tables", tables_json(report)},
                  {"largest_id", report.sequence ? Json(*report.sequence) : Json(nullptr)},
                  {"page_size", report.page_size},
                  {"pages", report.pages},
                  {"declared_pages", report.declared_pages},
                  {"header_ok", report.header_is_sound},
                  {"bad_pages", bad_pages_json(report)},
                  {"zero_pages", report.zero_pages},
                  {"left_out", left_out_json(report)},
                  {"log", log_json(report)},
                  {"seconds", report.seconds}});
}

}  // namespace corvan_tool
