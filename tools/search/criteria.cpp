#include "tools/search/criteria.h"

#include <fmt/format.h>

#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

// ?2 and ?3 are the place of `before`, ?4 the conversation.
std::string query(const SearchCriteria& criteria, const std::string& condition) {
  std::string sql = fmt::format("select {} from t_message where ", kMessageColumns);
  if (criteria.before) sql += fmt::format("({},id)<(?2,?3) and ", kMessageTime);
  if (criteria.session_id) sql += "session_id collate binary=?4 and ";
  if (!criteria.types.empty()) {
    sql += fmt::format("session_type in({}) and ", listed_types(criteria.types));
  }
  return sql + condition;
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
  const std::string sql = fmt::format("select {} from t_message where id=?", kMessageColumns);
  for (const Corvan::SearchHit& hit : hits) {
    store.each_row(
        sql, [&found](const Row& row) { found.push_back(message_at(row)); }, hit.id);
  }
  return found;
}

}  // namespace corvan_tool
