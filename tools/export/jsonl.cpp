#include "tools/export/jsonl.h"

#include <fmt/format.h>

#include <chrono>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "tools/export/records.h"
#include "tools/export/schema_warnings.h"
#include "tools/store/export_format.h"
#include "tools/ui/json.h"
#include "tools/ui/progress.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

// One table's part of the export.
struct ExportPart {
  const ExportTable* table = nullptr;
  std::string columns;  // the list after "select"
  std::string from;     // the rest of the statement, from "from" on
  int64_t rows = 0;
  int64_t written = 0;
};

// Partial exports omit sync times, because those claim that all messages up to that time are there.
bool is_wanted(const ExportTable& table, bool is_partial) {
  return !is_partial || &table != &export_tables()[kSyncs];
}

bool has_table(const ExportSource& source, const char* name) {
  return source.number(
             fmt::format("select count(*) from sqlite_master where type='table' and lower(name)={}",
                         quoted_texts({name}))) != 0;
}

ExportPart part_of(const ExportSource& source, const ExportTable& table) {
  ExportPart part;
  part.table = &table;
  const bool has_row_id = table.columns[0].is_row_id();
  part.columns = column_list(table, has_row_id ? source.row_id(table.name) : "");
  // "not indexed": in a damaged store, an index may lack rows.
  part.from = fmt::format(" from {} not indexed", table.name);
  if (table.is_by_session && source.is_partial()) part.from += " where " + source.condition();
  part.rows = source.number("select count(*)" + part.from);
  return part;
}

std::vector<ExportPart> parts_of(const ExportSource& source) {
  std::vector<ExportPart> parts;
  for (const ExportTable& table : export_tables()) {
    if (!is_wanted(table, source.is_partial()) || !has_table(source, table.name)) continue;
    parts.push_back(part_of(source, table));
  }
  return parts;
}

int64_t all_rows(const std::vector<ExportPart>& parts) {
  return std::accumulate(parts.begin(), parts.end(), int64_t{0},
                         [](int64_t sum, const ExportPart& part) { return sum + part.rows; });
}

Json header(const ExportSource& source) {
  Json schema_version;
  source.store().each_row("select database_version from t_version limit 1",
                          [&](const Row& row) { schema_version = printable(row.text(0)); });
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return {
      {"type", kHeaderType},
      {"format", kExportFormat},
      {"corvan", CORVAN_VERSION},
      {"schema_version", std::move(schema_version)},
      {"user_version", source.number("pragma user_version")},
      {"export_time", std::chrono::duration_cast<std::chrono::milliseconds>(now).count()},
      {"partial", source.is_partial()},
  };
}

// Adds the number of records of each table; 0 for a table that is not exported.
void add_counts(Json& record, const std::vector<ExportPart>& parts, int64_t ExportPart::*count) {
  for (const ExportTable& table : export_tables()) record[table.count] = 0;
  for (const ExportPart& part : parts) record[part.table->count] = part.*count;
}

void write_rows(const ExportSource& source, ExportPart& part, ExportOutput& output,
                Progress& progress) {
  std::string line;
  source.store().each_row("select " + part.columns + part.from + " order by 1",
                          [&](const Row& row) {
                            write_record(line, row, *part.table);
                            output.write(line);
                            ++part.written;
                            progress.advance();
                          });
}

}  // namespace

void export_jsonl(const ExportSource& source, ExportOutput& output, ExportCounts& counts) {
  std::vector<ExportPart> parts = parts_of(source);
  warn_about_schema(source);
  Progress progress("records", static_cast<std::uint64_t>(all_rows(parts)));

  Json first = header(source);
  add_counts(first, parts, &ExportPart::rows);
  output.write(json_text(first) + "\n");
  for (ExportPart& part : parts) {
    write_rows(source, part, output, progress);
    if (part.table == &export_tables()[kSessions]) counts.sessions = part.written;
    if (part.table == &export_tables()[kMessages]) counts.messages = part.written;
  }
  Json last = {{"type", kEndType}};
  add_counts(last, parts, &ExportPart::written);
  output.write(json_text(last) + "\n");
  output.close();
}

}  // namespace corvan_tool
