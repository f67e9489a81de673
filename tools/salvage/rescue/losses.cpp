#include "tools/salvage/rescue/losses.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <string>

namespace corvan_tool {

namespace {

// Upper bound for ids taken from index entries and doubtful rows, so that a wrong one leaves ids
// for new messages. Sound rows may have larger ids.
constexpr std::int64_t kLargestBelieved = std::numeric_limits<std::int64_t>::max() / 2;

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

// Counts lost conversations of which only the row id is known. LossCounter has counted them, and
// make_from_messages() makes them again if they have messages.
std::int64_t count_known_by_row_id(const RescueFile& file) {
  return file.number(
      "select count(*) from scratch.named_t_session "
      "where (typeof(session_id)<>'text' or typeof(session_type)<>'integer') "
      "and row_id not in(select rowid from t_session) "
      "and row_id not in(select row_id from scratch.doubtful_t_session)");
}

}  // namespace

std::int64_t TableResult::all_doubtful() const {
  return std::accumulate(doubtful.begin(), doubtful.end(), std::int64_t{0});
}

LossCounter::LossCounter(const RescueFile& file, const KnownSchema& schema,
                         std::optional<std::int64_t> largest_id, bool is_bounded)
    : file_(file), schema_(schema), largest_id_(largest_id), is_bounded_(is_bounded) {}

void LossCounter::settle(std::size_t table, const TableCoverage& coverage) const {
  const KnownTable& known = schema_.tables[table];
  drop_false_names(known, coverage);
  if (coverage.has_all_names) doubt_unnamed(known);
  drop_superseded(known);
}

// A name without a row is a damaged index entry if the tree was read where the row would be.
void LossCounter::drop_false_names(const KnownTable& table, const TableCoverage& coverage) const {
  const std::string from = "delete from " + named_table(table) + " where row_id";
  file_.run(from + "<=0");
  std::int64_t dropped_to = 0;
  for (const auto& [first, last] : coverage.missing) {
    if (first > dropped_to) {
      file_.run(fmt::format("{}>{} and row_id<={}", from, dropped_to, first));
    }
    dropped_to = std::max(dropped_to, last);
  }
  file_.run(fmt::format("{}>{}", from, dropped_to));
}

void LossCounter::doubt_unnamed(const KnownTable& table) const {
  const std::string unnamed =
      fmt::format(" where rowid in(select row_id from {}) and rowid not in(select row_id from {})",
                  unreached_table(table), named_table(table));
  file_.run(fmt::format("insert into {} select rowid,{},{} from {}{}", doubtful_table(table),
                        static_cast<int>(Doubt::kUnreached), column_list(table.columns), table.name,
                        unnamed));
  file_.run("delete from " + table.name + unnamed);
}

void LossCounter::drop_superseded(const KnownTable& table) const {
  file_.run(fmt::format("delete from {} where row_id in(select rowid from {})",
                        doubtful_table(table), table.name));
  if (table.unique.empty()) return;
  const std::string same_key =
      column_list(table.unique, "kept.{0} is doubtful_" + table.name + ".{0}", " and ");
  file_.run(fmt::format("delete from {} where exists(select 1 from {} as kept where {})",
                        doubtful_table(table), table.name, same_key));
}

// Upper bound for message ids taken from index entries: the largest id assigned so far, unless a
// row contradicts it or later commits are lost.
std::int64_t LossCounter::largest_named() const {
  const bool is_known =
      is_bounded_ && largest_id_ && file_.number("select max(id) from t_message") <= *largest_id_;
  return is_known ? *largest_id_ : kLargestBelieved;
}

// Counts rows that are named, but neither in the store nor doubtful.
std::int64_t LossCounter::count_lost(std::size_t table) const {
  const KnownTable& known = schema_.tables[table];
  std::string sql = fmt::format(
      "select count(*) from {} where row_id not in(select rowid from {}) "
      "and row_id not in(select row_id from {})",
      named_table(known), known.name, doubtful_table(known));
  if (table == schema_.messages) sql += fmt::format(" and row_id<={}", largest_named());
  return file_.number(sql);
}

// Counts the assigned message ids that were on unreadable pages. Nothing for other tables, or if
// the largest id is unknown.
std::optional<std::int64_t> LossCounter::count_missing_ids(std::size_t table,
                                                           const TableCoverage& coverage) const {
  if (table != schema_.messages || !largest_id_) return std::nullopt;
  const KnownTable& known = schema_.tables[table];
  std::int64_t missing = 0;
  std::int64_t counted_to = 0;
  for (const auto& [first, last] : coverage.missing) {
    const std::int64_t from = std::max(first, counted_to);
    const std::int64_t to = std::min(last, *largest_id_);
    if (from >= to) continue;
    const std::int64_t present = file_.number(fmt::format(
        "select count(*) from {} where rowid between {} and {}", known.name, from + 1, to));
    const std::int64_t doubtful = file_.number(
        fmt::format("select count(distinct row_id) from {} where row_id between {} and {}",
                    doubtful_table(known), from + 1, to));
    missing += to - from - present - doubtful;
    counted_to = to;
  }
  return missing;
}

// Counts each row once, under its first doubt.
std::int64_t LossCounter::count_doubtful(const KnownTable& table, std::size_t doubt) const {
  return file_.number(
      fmt::format("select count(*) from (select min(reason) as reason from {} group by row_id) "
                  "where reason={}",
                  doubtful_table(table), doubt));
}

void LossCounter::count(std::size_t table, const TableCoverage& coverage,
                        TableResult& result) const {
  const KnownTable& known = schema_.tables[table];
  result.recovered = file_.number("select count(*) from " + known.name);
  for (std::size_t doubt = 1; doubt < kDoubts; ++doubt) {
    result.doubtful.at(doubt) = count_doubtful(known, doubt);
  }
  result.lost = count_lost(table);
  if (!is_bounded_) return;
  const bool is_exact = coverage.is_whole || coverage.has_all_names;
  result.lost_at_most = is_exact ? result.lost : count_missing_ids(table, coverage);
  if (result.lost_at_most) result.lost_at_most = std::max(*result.lost_at_most, result.lost);
}

std::int64_t LossCounter::take_doubtful(std::size_t table) const {
  const KnownTable& known = schema_.tables[table];
  const std::string columns = column_list(known.columns);
  return file_.change(fmt::format(
      "insert or ignore into {}(rowid,{}) select row_id,{} from {} order by reason desc,rowid",
      known.name, columns, columns, doubtful_table(known)));
}

std::int64_t LossCounter::largest_known_id() const {
  const KnownTable& messages = schema_.tables[schema_.messages];
  // An id that does not fit between its neighbours was probably never assigned.
  const std::int64_t doubtful = file_.number(
      fmt::format("select max(row_id) from {} where reason<>{} and row_id<={}",
                  doubtful_table(messages), static_cast<int>(Doubt::kPlace), kLargestBelieved));
  const std::int64_t named = file_.number(fmt::format("select max(row_id) from {} where row_id<={}",
                                                      named_table(messages), largest_named()));
  return std::max({file_.number("select max(id) from t_message"), doubtful, named});
}

MadeSessions make_sessions(const RescueFile& file, const TableCoverage& coverage) {
  MadeSessions made;
  if (coverage.is_whole) return made;
  made.count = make_from_index_entries(file);
  if (coverage.has_all_names) return made;
  const std::int64_t counted_as_lost = count_known_by_row_id(file);
  const std::int64_t from_messages = make_from_messages(file);
  made.count += from_messages;
  made.not_counted_as_lost = std::max<std::int64_t>(0, from_messages - counted_as_lost);
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
