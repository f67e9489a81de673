#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "base/cv_database.h"
#include "tools/export_lines.h"
#include "tools/export_records.h"
#include "tools/json_output.h"
#include "tools/progress.h"
#include "tools/text_table.h"

namespace corvan_tool {

namespace {

// One table's part of the export.
struct Part {
  const ExportTable* table = nullptr;
  std::string from;  // the statement's text from "from" on
  int64_t rows = 0;
};

// Of chosen conversations alone the sync times would be wrong: they say that every message until
// then is there.
bool is_wanted(const ExportTable& table, bool is_partial) {
  return !is_partial || &table != &export_tables()[kSyncs];
}

bool has_table(const ExportSource& source, const char* name) {
  return source.number("select count(*) from sqlite_master where type='table' and name=" +
                       quoted_text(name)) != 0;
}

std::vector<Part> parts_of(const ExportSource& source) {
  std::vector<Part> parts;
  for (const ExportTable& table : export_tables()) {
    if (!is_wanted(table, source.is_partial()) || !has_table(source, table.name)) continue;
    Part part;
    part.table = &table;
    part.from = std::string(" from ") + table.name;
    if (table.is_by_session && source.is_partial()) part.from += " where " + source.condition();
    part.rows = source.number("select count(*)" + part.from);
    parts.push_back(std::move(part));
  }
  return parts;
}

// Names what the file has beside a store's tables, columns and indexes.
void name_what_is_left_out(const ExportSource& source) {
  std::string list;
  const auto add = [&list](const std::string& what) { list += (list.empty() ? "" : ", ") + what; };
  const auto schema = Corvan::CvDatabase::table_index();
  source.store().each_row(
      "select type,name from sqlite_master where name not like 'sqlite\\_%' escape '\\' "
      "order by type desc,name",
      [&](sqlite3_stmt* row) {
        const std::string name = text_at(row, 1);
        if (schema.count(name) == 0) add(text_at(row, 0) + " " + name);
      });
  for (const ExportTable& table : export_tables()) {
    const auto is_known = [&table](const std::string& name) {
      return std::any_of(table.columns.begin(), table.columns.end(),
                         [&name](const ExportColumn& column) { return name == column.name; });
    };
    source.store().each_row("select name from pragma_table_info(" + quoted_text(table.name) + ")",
                            [&](sqlite3_stmt* row) {
                              const std::string name = text_at(row, 0);
                              if (!is_known(name))
                                add(std::string("column ") + table.name + "." + name);
                            });
  }
  if (list.empty()) return;
  std::cerr << "corvan: " << printable(source.store().name())
            << ": left out, since it is no part of a message store: " << printable(list) << '\n';
}

Json header(const ExportSource& source) {
  Json schema_version;
  source.store().each_row("select database_version from t_version limit 1",
                          [&](sqlite3_stmt* row) { schema_version = printable(text_at(row, 0)); });
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

// The number of records of each table, which are 0 where a table is not exported.
void add_counts(Json& record, const std::vector<Part>& parts) {
  for (const ExportTable& table : export_tables()) record[table.count] = 0;
  for (const Part& part : parts) record[part.table->count] = part.rows;
}

}  // namespace

void export_jsonl(const ExportSource& source, ExportOutput& output, ExportCounts& counts) {
  name_what_is_left_out(source);
  const std::vector<Part> parts = parts_of(source);
  int64_t all = 0;
  for (const Part& part : parts) all += part.rows;
  Progress progress("records", static_cast<std::uint64_t>(all));

  Json first = header(source);
  add_counts(first, parts);
  output.write(first.dump() + "\n");
  std::string line;
  for (const Part& part : parts) {
    const ExportTable& table = *part.table;
    const auto write_record = [&](sqlite3_stmt* row) {
      line = std::string(R"({"type":")") + table.type + R"(")";
      for (std::size_t i = 0; i < table.columns.size(); ++i) {
        line += std::string(",\"") + table.columns[i].name + "\":";
        append_value(line, row, static_cast<int>(i), table.columns[i]);
      }
      line += "}\n";
      output.write(line);
      progress.advance();
    };
    source.store().each_row("select " + column_list(table) + part.from + " order by 1",
                            write_record);
    if (&table == &export_tables()[kSessions]) counts.sessions = part.rows;
    if (&table == &export_tables()[kMessages]) counts.messages = part.rows;
  }
  Json last = {{"type", kEndType}};
  add_counts(last, parts);
  output.write(last.dump() + "\n");
  output.close();
}

}  // namespace corvan_tool
