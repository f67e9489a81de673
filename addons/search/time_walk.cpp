#include "addons/search/time_walk.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

namespace Corvan::search {

namespace {

constexpr int64_t kMessagesBetweenLooks = 16;  // at the clock
constexpr int64_t kNoEnd = std::numeric_limits<int64_t>::max();

// The messages at ?1, those with ids below ?2; or the messages before ?1, those from ?2 on. ?3 is
// the conversation. Two queries take less time for each message than one for both.
std::string walk_query(const SearchOptions& options, bool by_index, bool at_time) {
  const char* const time = by_index ? "sent_time" : kMessageTime;
  std::string sql = "select id,";
  sql.append(time).append(" from t_message where ").append(time);
  if (at_time) {
    sql += "=?1 and id<?2";
  } else {
    sql.append("<?1 and ").append(time).append(">=?2");
  }
  if (options.session_id) sql += " and session_id=?3";
  if (options.session_id && options.session_types.size() == 1) {
    const int64_t type = options.session_types.front();
    sql.append(" and session_type=").append(std::to_string(type));
  }
  return sql.append(" and wanted(id) order by ").append(time).append(" desc,id desc");
}

}  // namespace

TimeWalk::TimeWalk(StoreReader* store, Candidates* candidates, MessageCheck* check,
                   ResultPage* page, const SearchOptions& options, bool has_time_order)
    : store_(*store),
      candidates_(*candidates),
      check_(*check),
      page_(*page),
      options_(options),
      at_time_(store->connection(), walk_query(options, has_time_order, true)),
      before_time_(store->connection(), walk_query(options, has_time_order, false)) {}

bool TimeWalk::pass(int64_t count) {
  const int64_t looked_at = page_.looked_at();
  const Result result =
      pass(options_.from_time, count > kNoEnd - looked_at ? kNoEnd : looked_at + count);
  return result == Result::kPaused;
}

bool TimeWalk::pass_down_to(int64_t oldest) {
  return pass(std::max(oldest, options_.from_time), kNoEnd) != Result::kEnded;
}

TimeWalk::Result TimeWalk::pass(int64_t oldest, int64_t end) {
  const SearchPlace begin = page_.begin();
  if (begin.sent_time < oldest) return Result::kThrough;
  if (begin.id > std::numeric_limits<int64_t>::min()) {
    const Result result = pass_some(&at_time_, begin.sent_time, begin.id, end);
    if (result != Result::kThrough) return result;
  }
  return pass_some(&before_time_, begin.sent_time, oldest, end);
}

TimeWalk::Result TimeWalk::pass_some(Statement* rows, int64_t time, int64_t limit, int64_t end) {
  if (options_.session_id) {
    rows->bind(time, limit, std::string_view(*options_.session_id));
  } else {
    rows->bind(time, limit);
  }
  while (next(rows, end)) {
    const SearchPlace place{rows->integer(1), rows->integer(0)};
    if (check_.place_of_hit(place.id) && !page_.add(place)) return Result::kEnded;
    if (!page_.reach(place)) return Result::kEnded;
    if (page_.looked_at() >= end) return Result::kPaused;
  }
  return Result::kThrough;
}

// SQLite passes over the messages that the index does not propose, but for the one at which the
// walk ends or looks at the clock.
bool TimeWalk::next(Statement* rows, int64_t end) {
  store_.set_wanted([this, end](int64_t id) {
    page_.count_message();
    return candidates_.may_match(id) || page_.looked_at() >= end || is_over();
  });
  try {
    const bool has_row = rows->row();
    store_.clear_wanted();
    return has_row;
  } catch (...) {
    store_.clear_wanted();
    store_.rethrow();
    throw;
  }
}

bool TimeWalk::is_over() const {
  return page_.looked_at() % kMessagesBetweenLooks == 0 && page_.is_time_over();
}

}  // namespace Corvan::search
