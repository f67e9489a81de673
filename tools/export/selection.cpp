#include "tools/export/selection.h"

#include <algorithm>

#include "tools/store/export_format.h"
#include "tools/store/schema.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// The elements with commas between them.
template <typename Elements, typename Text>
std::string joined(const Elements& elements, const Text& text) {
  std::string result;
  for (const auto& element : elements) result += (result.empty() ? "" : ",") + text(element);
  return result;
}

}  // namespace

Code code_at(sqlite3_stmt* row, int place) {
  if (sqlite3_column_type(row, place) == SQLITE_INTEGER) {
    const int64_t number = sqlite3_column_int64(row, place);
    if (number >= INT32_MIN && number <= INT32_MAX) return {static_cast<int32_t>(number), ""};
  }
  return {std::nullopt, text_at(row, place)};
}

std::string quoted_text(const std::string& text) {
  std::string result = "'";
  for (const char c : text) result.append(c == '\'' ? 2 : 1, c);
  return result + "'";
}

ExportSource::ExportSource(const std::string& folder, const std::vector<std::string>& session_ids,
                           const std::vector<Corvan::SessionType>& kinds)
    : store_(folder), is_partial_(!session_ids.empty() || !kinds.empty()) {
  require_columns();
  kind_condition_ = "1";
  if (!kinds.empty()) {
    kind_condition_ =
        "session_type in(" + joined(kinds, [](int32_t kind) { return std::to_string(kind); }) + ")";
  }
  condition_ = kind_condition_;
  if (!session_ids.empty()) {
    condition_ += " and session_id collate binary in(" + joined(session_ids, quoted_text) + ")";
  }
  require_conversations(session_ids);
}

int64_t ExportSource::number(const std::string& sql) const {
  int64_t value = 0;
  store_.each_row(sql, [&value](sqlite3_stmt* row) { value = sqlite3_column_int64(row, 0); });
  return value;
}

int64_t ExportSource::rows_of(const std::string& table) const {
  return number("select count(*) from " + table + " not indexed where " + condition_);
}

std::string ExportSource::row_id(const std::string& table) const {
  std::string name;
  store_.require(find_row_id(store_.connection(), table, name));
  if (!name.empty()) return name;
  throw ToolError(store_.name() + ": " + no_row_id_text(table) +
                  "; --format csv does without row ids");
}

void ExportSource::require_all(const std::string& table, int64_t found, int64_t all) const {
  if (found == all) return;
  if (found > all) {
    throw ToolError(store_.name() + ": " + std::to_string(found) + " rows of " + table +
                    " were found, but the table has only " + std::to_string(all) +
                    "; see 'corvan check' and 'corvan verify'; --format jsonl reads the tables "
                    "alone");
  }
  throw ToolError(
      store_.name() + ": " + std::to_string(all - found) + " of the " + std::to_string(all) +
      " rows of " + table +
      " are missing from an index, and would be from the export; see 'corvan check'; --format jsonl "
      "reads the tables alone");
}

void ExportSource::require_columns() const {
  for (const ExportTable& table : export_tables()) {
    std::vector<std::string> present;
    store_.require(read_columns(store_.connection(), table.name, present));
    if (present.empty()) continue;  // only sqlite_sequence may be missing
    for (const ExportColumn& column : table.columns) {
      if (column.is_row_id()) continue;
      if (std::find(present.begin(), present.end(), column.name) != present.end()) continue;
      throw ToolError(store_.name() + ": table " + table.name + " has no column \"" + column.name +
                      "\"; only a store with the columns of this release can be exported");
    }
  }
}

void ExportSource::require_conversations(const std::vector<std::string>& session_ids) const {
  for (const std::string& id : session_ids) {
    std::string where = " where session_id collate binary=";
    where.append(quoted_text(id)).append(" and ").append(kind_condition_).append(")");
    std::string sql = "select exists(select 1 from t_session";
    sql.append(where).append(" or exists(select 1 from t_message").append(where);
    if (number(sql) != 0) continue;
    const bool any_kind = kind_condition_ == "1";
    throw ToolError(store_.name() + ": no conversation \"" + id + "\"" +
                    (any_kind ? "" : " of the kinds named") +
                    "; 'corvan list' shows the conversations that there are");
  }
}

}  // namespace corvan_tool
