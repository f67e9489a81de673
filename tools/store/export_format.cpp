#include "tools/store/export_format.h"

#include <fmt/format.h>

namespace corvan_tool {

const std::vector<ExportTable>& export_tables() {
  static const std::vector<ExportTable> tables = {
      {"version", "versions", "t_version", false, {{"rowid", false}, {"database_version", true}}},
      {"sync",
       "syncs",
       "t_sync",
       false,
       {{"rowid", false}, {"user_id", true}, {"receive_time", false}, {"sent_time", false}}},
      {"session",
       "sessions",
       "t_session",
       true,
       {{"rowid", false},
        {"session_id", true},
        {"session_type", false},
        {"title", true},
        {"draft", true},
        {"is_top", false},
        {"session_time", false},
        {"unread_count", false},
        {"mention_count", false},
        {"silence", false},
        {"latest_id", false},
        {"read_time", false},
        {"receipt_time", false}}},
      {"message",
       "messages",
       "t_message",
       true,
       {{"id", false},
        {"session_id", true},
        {"session_type", false},
        {"object_name", true},
        {"content", true},
        {"sender", true},
        {"direction", false},
        {"sent_status", false},
        {"read_status", false},
        {"is_mention", false},
        {"sent_time", false},
        {"client_uid", false},
        {"server_uid", true}}},
      {"sequence",
       "sequences",
       "sqlite_sequence",
       false,
       {{"rowid", false}, {"name", true}, {"seq", false}}},
  };
  return tables;
}

std::string column_list(const ExportTable& table, const std::string& row_id) {
  std::string list;
  for (const ExportColumn& column : table.columns) {
    list += (list.empty() ? "" : ",") + (column.is_row_id() ? row_id : column.name);
  }
  return list;
}

std::string real_text(double value) {
  return fmt::format("{:.17g}", value);
}

}  // namespace corvan_tool
