#include "tools/salvage/rescue/made_rows.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>

namespace corvan_tool {

namespace {

// SQL for a column of the newest message of conversation `s`.
std::string of_newest(const std::string& column) {
  return fmt::format(
      "(select {} from t_message as m where m.session_id=s.session_id and "
      "m.session_type=s.session_type order by sent_time desc,id desc limit 1)",
      column);
}

std::int64_t make_from_index_entries(const RescueFile& file) {
  return file.change(fmt::format(
      "insert or ignore into t_session(rowid,session_id,session_type,is_top,session_time,"
      "unread_count,mention_count,silence,latest_id) "
      "select row_id,session_id,session_type,coalesce(is_top,0),coalesce(session_time,{},0),"
      "coalesce(unread_count,0),coalesce(mention_count,0),coalesce(silence,0),"
      "coalesce(latest_id,{},-1) "
      "from scratch.named_t_session as s "
      "where typeof(session_id)='text' and typeof(session_type)='integer' "
      "and row_id not in(select row_id from scratch.doubtful_t_session)",
      of_newest("sent_time"), of_newest("id")));
}

std::int64_t make_from_messages(const RescueFile& file) {
  return file.change(
      fmt::format("insert or ignore into t_session(session_id,session_type,session_time,latest_id) "
                  "select session_id,session_type,{},{} "
                  "from (select distinct session_id,session_type from t_message) as s "
                  "where not exists(select 1 from scratch.doubtful_t_session as d "
                  "where d.session_id=s.session_id and d.session_type=s.session_type)",
                  of_newest("sent_time"), of_newest("id")));
}

// Counts lost conversations of which only the row id is known. They are among those that messages
// name.
std::int64_t count_known_by_row_id(const RescueFile& file) {
  return file.number(
      "select count(*) from scratch.named_t_session "
      "where (typeof(session_id)<>'text' or typeof(session_type)<>'integer') "
      "and row_id not in(select rowid from t_session) "
      "and row_id not in(select row_id from scratch.doubtful_t_session)");
}

}  // namespace

MadeSessions make_sessions(const RescueFile& file, const TableCoverage& coverage) {
  MadeSessions made;
  if (coverage.is_whole) return made;
  made.count = make_from_index_entries(file);
  if (coverage.has_all_names) return made;
  const std::int64_t counted_as_lost = count_known_by_row_id(file);
  const std::int64_t from_messages = make_from_messages(file);
  made.count += from_messages;
  made.lost_besides = std::max<std::int64_t>(0, from_messages - counted_as_lost);
  return made;
}

std::int64_t make_version(const RescueFile& file, const std::string& version) {
  if (file.number("select count(*) from t_version") > 0) return 0;
  const int rc =
      file.connection().run("insert into t_version(rowid,database_version) values(1,?)", version);
  if (rc != SQLITE_DONE) file.fail(file.connection().error());
  return 1;
}

}  // namespace corvan_tool
