#include "tools/search/criteria.h"

#include <fmt/format.h>

#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

// ?2 and ?3 are the place of `before`, ?4 the conversation.
std::string filters(const SearchCriteria& criteria) {
  std::string sql = "1";
  if (criteria.before) sql += fmt::format(" and ({},id)<(?2,?3)", kMessageTime);
  if (criteria.session_id) sql += " and session_id collate binary=?4";
  if (!criteria.types.empty()) {
    sql += fmt::format(" and session_type in({})", listed_types(criteria.types));
  }
  return sql;
}

// SQLite may compute the parts of an "and" in any order, those of a "case" only one after the
// other.
std::string query(const SearchCriteria& criteria, const std::string& condition) {
  const std::string filter = filters(criteria);
  return fmt::format("select {} from t_message where {} and case when {} then {} end",
                     kMessageColumns, filter, filter, condition);
}

}  // namespace

// The limit of the inner query keeps SQLite from merging it with the outer one, whose order is that
// of the time, the last column, and of the id.
FoundMessages select_messages(const Snapshot& store, const SearchCriteria& criteria,
                              const std::string& condition, const std::string& text) {
  const Corvan::SearchPlace place = criteria.before.value_or(Corvan::SearchPlace());
  const StatementProgress progress(store.connection().handle(), "million steps of the search");
  FoundMessages found;
  store.each_row(
      fmt::format("select * from({} order by id desc limit -1) order by 11 desc,1 desc limit ?5",
                  query(criteria, condition)),
      [&found](const Row& row) { found.push_back(message_at(row)); }, text, place.sent_time,
      place.id, criteria.session_id.value_or(""), criteria.most);
  return found;
}

FoundMessages read_messages(const Snapshot& store, const std::vector<Corvan::SearchHit>& hits) {
  FoundMessages found;
  Statement message(store.connection(),
                    fmt::format("select {} from t_message where id=?", kMessageColumns));
  for (const Corvan::SearchHit& hit : hits) {
    message.bind(1, hit.id);
    const int rc = message.step();
    if (rc == SQLITE_ROW) {
      found.push_back(message_at(message.row()));
    } else {
      store.require(rc);
    }
    message.reset();
  }
  return found;
}

}  // namespace corvan_tool
