#include "tools/salvage/salvage.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/store/file_names.h"
#include "tools/store/schema.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

// The path of the damaged file: `options.damaged` itself, or the store's file in that folder. Links
// are resolved, because the log is next to the file and not next to a link. A missing file is
// accepted if its log exists and is to be read.
std::string path_of_damaged(const SalvageOptions& options) {
  std::error_code error;
  const std::string& damaged = options.damaged;
  const std::string file =
      fs::is_directory(fs::u8path(damaged), error) ? store_file(damaged) : damaged;
  const fs::path real = fs::canonical(fs::u8path(file), error);
  if (!error) return path_text(real);
  const std::string why = error.message();
  constexpr std::string_view kEnd(kLogSuffix);
  std::string log = path_text(fs::canonical(fs::u8path(file + kLogSuffix), error));
  if (error || options.without_log || log.size() <= kEnd.size()) {
    throw ToolError(file + ": " + why + "; name the store's folder or file");
  }
  log.resize(log.size() - kEnd.size());
  return log;
}

}  // namespace

Salvage::Salvage(const SalvageOptions& options)
    : options_(options),
      path_(path_of_damaged(options)),
      file_(path_, !options.without_log),
      known_(known_schema()),
      made_(PendingOutput::folder(options.folder)),
      store_(known_, made_.path(), options.folder),
      pages_(file_),
      progress_("pages", file_.pages_there().count()),
      coverage_(known_.tables.size(), known_.indexes.size()),
      records_(file_, pages_, progress_),
      rows_(file_, known_, records_, coverage_, store_),
      trees_(file_, pages_, progress_),
      scan_(file_, known_, coverage_, rows_, pages_, progress_) {}

SalvageReport Salvage::run() {
  pages_.mark_free();
  schema_ = read_file_schema(file_, known_, records_, trees_);
  left_out_ = schema_.foreign;
  follow_tables();
  follow_indexes();
  scan_.scan_file();
  scan_.scan_lost_commits();
  require_unchanged();
  SalvageReport report = finish();
  keep(report);
  return report;
}

void Salvage::follow_tables() {
  std::vector<bool> is_found(known_.tables.size(), false);
  for (const Tree& tree : schema_.trees) {
    if (!tree.is_index) follow_table(tree, is_found);
  }
  for (std::size_t table = 0; table < is_found.size(); ++table) {
    if (!is_found[table]) miss_table(table);
  }
}

void Salvage::follow_table(const Tree& tree, std::vector<bool>& is_found) {
  const auto known =
      std::find_if(known_.tables.begin(), known_.tables.end(),
                   [&tree](const KnownTable& table) { return table.name == tree.name; });
  if (known == known_.tables.end()) {
    // Only marks the pages, so that the scan does not take a foreign table's rows.
    TableCoverage ignored;
    if (tree.root > 1) trees_.follow_table(tree, ignored, [](const Leaf&) { return true; });
    return;
  }
  const auto table = static_cast<std::size_t>(known - known_.tables.begin());
  if (!is_found[table]) {
    const std::vector<std::string> added = columns_added(*known, tree);
    coverage_.tables[table].added_columns = added.size();
    for (const std::string& column : added) {
      left_out_.push_back("column " + known->name + "." + column);
    }
  }
  trees_.follow_table(tree, coverage_.tables[table],
                      [this, table](const Leaf& leaf) { return rows_.read_leaf(table, leaf); });
  is_found[table] = true;
}

// Handles a table that the file's schema lacks. If the schema was read whole, no rows are missing.
void Salvage::miss_table(std::size_t table) {
  TableCoverage& coverage = coverage_.tables[table];
  coverage.is_whole = schema_.is_whole;
  if (!schema_.is_whole) coverage.missing.add(kAllIds);
}

void Salvage::follow_indexes() {
  for (const Tree& tree : schema_.trees) {
    if (tree.is_index && tree.root > 1) follow_index(tree);
  }
}

void Salvage::follow_index(const Tree& tree) {
  const auto known =
      std::find_if(known_.indexes.begin(), known_.indexes.end(), [&tree](const KnownIndex& index) {
        return index.name == tree.name && is_same_statement(index.sql, tree.sql);
      });
  // If all rows were read, the entries are not needed, and the pages are only marked.
  const bool is_needed = known != known_.indexes.end() && !coverage_.tables[known->table].is_whole;
  const KnownIndex* const index = is_needed ? &*known : nullptr;
  const bool is_whole =
      trees_.follow_index(tree, [this, index](const Page& page, std::string_view bytes) {
        return rows_.read_entries(page, bytes, index);
      });
  if (!is_needed || !is_whole) return;
  coverage_.index_is_whole[known_.place_of(*index)] = true;
  if (index->has_all_rows) coverage_.tables[index->table].has_all_names = true;
}

void Salvage::require_unchanged() const {
  if (!file_.has_changed()) return;
  throw ToolError(path_ + ": changed while it was read; close its client and try again");
}

SalvageReport Salvage::finish() {
  SalvageReport report;
  report.log = file_.log();
  if (trees_.log_contradicts()) report.log.fits = false;
  report.results = store_.finish(coverage_, options_.doubtful, is_whole(report.log));
  report.sequence = store_.sequence();
  for (std::size_t i = 0; i < report.results.size(); ++i) {
    report.tables.push_back(known_.tables[i].name);
  }
  report.file = path_;
  report.folder = options_.folder;
  report.with_doubtful = options_.doubtful;
  report.log_is_read = !options_.without_log;
  report.page_size = file_.page_size();
  report.pages = file_.page_count();
  report.declared_pages = file_.declared_pages();
  report.header_is_sound = file_.header_is_sound();
  report.left_out = left_out_;
  report.bad_pages = pages_.bad_pages();
  report.zero_pages = pages_.zero_pages();
  return report;
}

void Salvage::keep(SalvageReport& report) {
  report.is_kept = report.recovered() > 0;
  if (report.is_kept) {
    made_.keep();
  } else {
    for (TableResult& result : report.results) result.made = 0;
  }
  report.seconds = stopwatch_.seconds();
}

}  // namespace corvan_tool
