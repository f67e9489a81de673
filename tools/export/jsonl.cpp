#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "tools/export/lines.h"
#include "tools/store/export_format.h"
#include "tools/store/schema.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

// One table's part of the export.
struct ExportPart {
  const ExportTable* table = nullptr;
  std::string columns;  // in the statement's text
  std::string from;     // the statement's text from "from" on
  int64_t rows = 0;
  int64_t written = 0;
};

// Of chosen conversations alone the sync times would be wrong: they say that every message until
// then is there.
bool is_wanted(const ExportTable& table, bool is_partial) {
  return !is_partial || &table != &export_tables()[kSyncs];
}

bool has_table(const ExportSource& source, const char* name) {
  return source.number("select count(*) from sqlite_master where type='table' and lower(name)=" +
                       quoted_text(name)) != 0;
}

std::vector<ExportPart> parts_of(const ExportSource& source) {
  std::vector<ExportPart> parts;
  for (const ExportTable& table : export_tables()) {
    if (!is_wanted(table, source.is_partial()) || !has_table(source, table.name)) continue;
    ExportPart part;
    part.table = &table;
    const bool has_row_id = table.columns[0].is_row_id();
    part.columns = column_list(table, has_row_id ? source.row_id(table.name) : "");
    // Not by way of an index, which may lack rows of a damaged store.
    part.from = std::string(" from ") + table.name + " not indexed";
    if (table.is_by_session && source.is_partial()) part.from += " where " + source.condition();
    part.rows = source.number("select count(*)" + part.from);
    parts.push_back(std::move(part));
  }
  return parts;
}

using Names = std::vector<std::string>;

std::string joined(const Names& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

void warn(const ExportSource& source, const std::string& text) {
  std::cerr << "corvan: " << printable(source.store().name() + ": " + text) << '\n';
}

// The columns of the file's table that a store's does not have.
void add_more_columns(const ExportSource& source, const ExportTable& table, Names& names) {
  const auto is_known = [&table](const std::string& name) {
    return std::any_of(table.columns.begin(), table.columns.end(),
                       [&name](const ExportColumn& column) {
                         return !column.is_row_id() && lower_case(name) == column.name;
                       });
  };
  source.store().each_row("pragma table_xinfo(" + quoted_name(table.name) + ")",
                          [&](sqlite3_stmt* row) {
                            const std::string name = text_at(row, 1);
                            if (!is_known(name))
                              names.push_back(std::string("column ") + table.name + "." + name);
                          });
}

// Names what the file has beside a store's tables, columns and indexes.
void name_what_is_left_out(const ExportSource& source, const Schema& wanted,
                           const Schema& present) {
  Names names;
  source.store().each_row(
      "select type,name from sqlite_master where name not like 'sqlite\\_%' escape '\\' "
      "or name like 'sqlite\\_stat%' escape '\\' order by type desc,name",
      [&](sqlite3_stmt* row) {
        const std::string name = text_at(row, 1);
        if (wanted.table(name) == nullptr && wanted.index(name) == nullptr) {
          names.push_back(text_at(row, 0) + " " + name);
        }
      });
  std::size_t kept = 0;
  for (const IndexDifference& one : index_differences(wanted, present, kept)) {
    if (one.kind != IndexDifference::kDiffers) continue;
    names.push_back("index " + one.index.name + " as it is in this file");
  }
  for (const ExportTable& table : export_tables()) add_more_columns(source, table, names);
  for (const char* setting : {"application_id", "auto_vacuum"}) {
    if (source.number(std::string("pragma ") + setting) != 0) names.emplace_back(setting);
  }
  if (names.empty()) return;
  warn(source, "left out, since it is no part of a message store: " + joined(names));
}

// Names what the file's tables lack of a new store's, in which a restore puts the rows.
void name_what_is_missing(const ExportSource& source, const Schema& wanted, const Schema& present) {
  Names names;
  for (const Table& table : wanted.tables) {
    const Table* const found = present.table(table.name);
    if (found == nullptr || is_same_statement(found->sql, table.sql)) continue;
    Table parts = *found;
    source.store().require(read_parts(source.store().connection(), parts));
    for (const std::string& part : table.parts) {
      if (std::binary_search(parts.parts.begin(), parts.parts.end(), part)) continue;
      names.push_back(table.name + " has no " + part);
    }
  }
  if (names.empty()) return;
  warn(source, "'corvan restore' may refuse rows, since they are in tables unlike a new store's: " +
                   joined(names) + "; see 'corvan verify'");
}

void compare_with_new_store(const ExportSource& source) {
  const Schema wanted = new_schema();
  Schema present;
  source.store().require(read_schema(source.store().connection(), present));
  name_what_is_left_out(source, wanted, present);
  name_what_is_missing(source, wanted, present);
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
void add_counts(Json& record, const std::vector<ExportPart>& parts, int64_t ExportPart::*count) {
  for (const ExportTable& table : export_tables()) record[table.count] = 0;
  for (const ExportPart& part : parts) record[part.table->count] = part.*count;
}

}  // namespace

void export_jsonl(const ExportSource& source, ExportOutput& output, ExportCounts& counts) {
  std::vector<ExportPart> parts = parts_of(source);
  compare_with_new_store(source);
  int64_t all = 0;
  for (const ExportPart& part : parts) all += part.rows;
  Progress progress("records", static_cast<std::uint64_t>(all));

  Json first = header(source);
  add_counts(first, parts, &ExportPart::rows);
  output.write(json_text(first) + "\n");
  std::string line;
  for (ExportPart& part : parts) {
    const ExportTable& table = *part.table;
    const auto write_record = [&](sqlite3_stmt* row) {
      line = std::string(R"({"type":")") + table.type + R"(")";
      for (std::size_t i = 0; i < table.columns.size(); ++i) {
        line += std::string(",\"") + table.columns[i].name + "\":";
        append_value(line, row, static_cast<int>(i), table.columns[i]);
      }
      line += "}\n";
      output.write(line);
      ++part.written;
      progress.advance();
    };
    source.store().each_row("select " + part.columns + part.from + " order by 1", write_record);
    if (&table == &export_tables()[kSessions]) counts.sessions = part.written;
    if (&table == &export_tables()[kMessages]) counts.messages = part.written;
  }
  Json last = {{"type", kEndType}};
  add_counts(last, parts, &ExportPart::written);
  output.write(json_text(last) + "\n");
  output.close();
}

}  // namespace corvan_tool
