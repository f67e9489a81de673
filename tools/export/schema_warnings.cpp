#include "tools/export/schema_warnings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <string>
#include <vector>

#include "tools/store/export_format.h"
#include "tools/store/new_store.h"
#include "tools/store/schema.h"
#include "tools/ui/letter_case.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

using Names = std::vector<std::string>;

void warn(const ExportSource& source, const std::string& text) {
  std::cerr << "corvan: " << printable(source.store().name() + ": " + text) << '\n';
}

bool is_exported(const ExportTable& table, const std::string& column_name) {
  return std::any_of(table.columns.begin(), table.columns.end(), [&](const ExportColumn& column) {
    return !column.is_row_id() && lower_case(column_name) == column.name;
  });
}

void add_unknown_objects(const ExportSource& source, const Schema& wanted, Names& names) {
  source.store().each_row(
      "select type,name from sqlite_master where name not like 'sqlite\\_%' escape '\\' "
      "or name like 'sqlite\\_stat%' escape '\\' order by type desc,name",
      [&](const Row& row) {
        const std::string name = row.text(1);
        if (wanted.table(name) != nullptr || wanted.index(name) != nullptr) return;
        names.push_back(row.text(0) + " " + name);
      });
}

void add_altered_indexes(const Schema& wanted, const Schema& present, Names& names) {
  std::size_t kept = 0;
  for (const IndexDifference& one : index_differences(wanted, present, kept)) {
    if (one.kind != IndexDifference::kDiffers) continue;
    names.push_back("index " + one.index.name + " as it is in this file");
  }
}

void add_unknown_columns(const ExportSource& source, const ExportTable& table, Names& names) {
  source.store().each_row("pragma table_xinfo(" + quoted_name(table.name) + ")",
                          [&](const Row& row) {
                            const std::string name = row.text(1);
                            if (is_exported(table, name)) return;
                            names.push_back(fmt::format("column {}.{}", table.name, name));
                          });
}

void add_settings(const ExportSource& source, Names& names) {
  for (const char* setting : {"application_id", "auto_vacuum"}) {
    if (source.number(std::string("pragma ") + setting) != 0) names.emplace_back(setting);
  }
}

void warn_about_losses(const ExportSource& source, const Schema& wanted, const Schema& present) {
  Names names;
  add_unknown_objects(source, wanted, names);
  add_altered_indexes(wanted, present, names);
  for (const ExportTable& table : export_tables()) add_unknown_columns(source, table, names);
  add_settings(source, names);
  if (names.empty()) return;
  warn(source, fmt::format("left out, not part of a message store: {}", fmt::join(names, ", ")));
}

// Adds the columns and keys of a new store's table that the file's table lacks.
void add_missing_parts(const ExportSource& source, const Table& wanted, const Table& found,
                       Names& names) {
  if (is_same_statement(found.sql, wanted.sql)) return;
  Table parts = found;
  source.store().require(read_parts(source.store().connection(), parts));
  for (const std::string& part : wanted.parts) {
    if (std::binary_search(parts.parts.begin(), parts.parts.end(), part)) continue;
    names.push_back(fmt::format("{} has no {}", wanted.name, part));
  }
}

void warn_about_missing_parts(const ExportSource& source, const Schema& wanted,
                              const Schema& present) {
  Names names;
  for (const Table& table : wanted.tables) {
    const Table* const found = present.table(table.name);
    if (found != nullptr) add_missing_parts(source, table, *found, names);
  }
  if (names.empty()) return;
  warn(source,
       fmt::format("'corvan restore' may refuse rows, because tables differ from a new store's: "
                   "{}; see 'corvan verify'",
                   fmt::join(names, ", ")));
}

}  // namespace

void warn_about_schema(const ExportSource& source) {
  const Schema wanted = new_schema();
  Schema present;
  source.store().require(read_schema(source.store().connection(), present));
  warn_about_losses(source, wanted, present);
  warn_about_missing_parts(source, wanted, present);
}

}  // namespace corvan_tool
