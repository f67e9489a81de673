#include "tools/import/export_reader.h"

#include <fmt/format.h>

#include <numeric>
#include <vector>

#include "tools/import/json_line.h"
#include "tools/import/restored_store.h"
#include "tools/store/export_format.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// The longest line, in MiB. By default, SQLite stores no row of more than a billion bytes. An
// export of a row takes at most about twice as many bytes.
constexpr std::size_t kLongestRecord = 2048;

// The longest first line, in MiB. A file that is not an export is refused without reading it whole.
constexpr std::size_t kLongestHeader = 1;

}  // namespace

ExportReader::ExportReader(const std::string& file)
    : name_(file == "-" ? "standard input" : file),
      source_({file}, kLongestHeader),
      counts_(export_tables().size()) {
  if (!next_line()) throw ToolError(name_ + ": empty, not an export");
  source_.set_limit(kLongestRecord);
  at_line([this] { header_ = read_header(parse_record(line_)); });
}

std::uint64_t ExportReader::announced() const {
  return static_cast<std::uint64_t>(
      std::accumulate(header_.counts.begin(), header_.counts.end(), int64_t{0}));
}

void ExportReader::read_into(RestoredStore& store, const std::function<void()>& advance) {
  while (!is_at_end_) {
    if (!next_line()) fail_at_end();
    at_line([&] { take_record(store); });
    advance();
  }
  if (next_line()) at_line([] { throw LineError("a line after the record \"end\""); });
}

// Skips blank lines. Returns false after the last line.
bool ExportReader::next_line() {
  do {
    if (!source_.next(line_)) return false;
    ++lines_;
  } while (line_.find_first_not_of(" \t\r") == std::string::npos);
  return true;
}

void ExportReader::take_record(RestoredStore& store) {
  const Record record = parse_record(line_);
  const std::string type = record_type(record);
  if (type == kEndType) {
    take_end(store, record);
  } else {
    take_row(store, record, table_of(type));
  }
}

void ExportReader::take_row(RestoredStore& store, const Record& record, std::size_t table) {
  const std::vector<ExportTable>& tables = export_tables();
  if (table < table_) {
    throw LineError(fmt::format(R"(a record "{}" after one of the type "{}")", tables[table].type,
                                tables[table_].type));
  }
  enter_table(store, table);
  require_columns(record, table);
  store.insert(table, record);
  ++counts_[table];
}

void ExportReader::take_end(RestoredStore& store, const Record& record) {
  require_counts(read_end(record));
  enter_table(store, kSequences);
  is_at_end_ = true;
}

void ExportReader::enter_table(RestoredStore& store, std::size_t table) {
  if (table_ < kSequences && table == kSequences) store.clear_sequence();
  table_ = table;
}

void ExportReader::require_counts(const RowCounts& at_end) const {
  const std::vector<ExportTable>& tables = export_tables();
  for (std::size_t i = 0; i < tables.size(); ++i) {
    for (const int64_t count : {at_end[i], header_.counts[i]}) {
      if (count == counts_[i]) continue;
      fail_field(
          tables[i].count,
          fmt::format("{} were exported, but {} are in the file; export again", count, counts_[i]));
    }
  }
}

// Calls `read`, and adds the place of the current line to its LineError.
template <typename Read>
void ExportReader::at_line(const Read& read) const {
  try {
    read();
  } catch (const LineError& error) {
    throw ToolError(source_.place() + ": " + error.what());
  }
}

void ExportReader::fail_at_end() const {
  throw ToolError(
      fmt::format("{}: ends after line {} without the record \"end\": it was cut off; export again",
                  name_, lines_));
}

}  // namespace corvan_tool
