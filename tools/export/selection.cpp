#include "tools/export/selection.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/store/export_format.h"
#include "tools/store/schema.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

std::string type_condition_of(const std::vector<Corvan::SessionType>& types) {
  if (types.empty()) return "1";
  const std::vector<int32_t> numbers(types.begin(), types.end());
  return fmt::format("session_type in({})", fmt::join(numbers, ","));
}

std::string id_condition_of(const std::vector<std::string>& session_ids) {
  if (session_ids.empty()) return "";
  return fmt::format(" and session_id collate binary in({})", quoted_texts(session_ids));
}

}  // namespace

Code code_at(const Row& row, int place) {
  if (row.type(place) == SQLITE_INTEGER) {
    const int64_t number = row.int64(place);
    if (number >= INT32_MIN && number <= INT32_MAX) return {static_cast<int32_t>(number), ""};
  }
  return {std::nullopt, row.text(place)};
}

ExportSource::ExportSource(const std::string& folder, const std::vector<std::string>& session_ids,
                           const std::vector<Corvan::SessionType>& types)
    : store_(folder),
      is_partial_(!session_ids.empty() || !types.empty()),
      type_condition_(type_condition_of(types)),
      condition_(type_condition_ + id_condition_of(session_ids)) {
  require_columns();
  for (const std::string& id : session_ids) require_conversation(id);
}

int64_t ExportSource::number(const std::string& sql) const {
  int64_t value = 0;
  store_.each_row(sql, [&value](const Row& row) { value = row.int64(0); });
  return value;
}

int64_t ExportSource::rows_of(const std::string& table) const {
  return number(fmt::format("select count(*) from {} not indexed where {}", table, condition_));
}

std::string ExportSource::row_id(const std::string& table) const {
  std::string name;
  store_.require(find_row_id(store_.connection(), table, name));
  if (!name.empty()) return name;
  throw ToolError(fmt::format("{}: {}; --format csv does without row ids", store_.name(),
                              no_row_id_text(table)));
}

void ExportSource::require_all(const std::string& table, int64_t found, int64_t all) const {
  if (found > all) {
    throw ToolError(fmt::format(
        "{}: {} rows of {} were found, but the table has only {}; see 'corvan check' and 'corvan "
        "verify'; --format jsonl reads the tables alone",
        store_.name(), found, table, all));
  }
  if (found < all) {
    throw ToolError(fmt::format(
        "{}: {} of the {} rows of {} are missing from an index, and would be missing from the "
        "export; see 'corvan check'; --format jsonl reads the tables alone",
        store_.name(), all - found, all, table));
  }
}

void ExportSource::require_columns() const {
  for (const ExportTable& table : export_tables()) {
    std::vector<std::string> present;
    store_.require(read_columns(store_.connection(), table.name, present));
    if (present.empty()) continue;  // only sqlite_sequence may be missing
    for (const ExportColumn& column : table.columns) {
      if (column.is_row_id()) continue;
      if (std::find(present.begin(), present.end(), column.name) != present.end()) continue;
      throw ToolError(fmt::format(
          "{}: table {} has no column \"{}\"; only a store with the columns of this release can be "
          "exported",
          store_.name(), table.name, column.name));
    }
  }
}

void ExportSource::require_conversation(const std::string& id) const {
  const std::string where =
      fmt::format("where session_id collate binary={} and {}", quoted_texts({id}), type_condition_);
  const std::string sql = fmt::format(
      "select exists(select 1 from t_session {0}) or exists(select 1 from t_message {0})", where);
  if (number(sql) != 0) return;
  const bool any_type = type_condition_ == "1";
  throw ToolError(fmt::format("{}: no conversation \"{}\"{}; 'corvan list' shows all conversations",
                              store_.name(), id, any_type ? "" : " of these types"));
}

}  // namespace corvan_tool
