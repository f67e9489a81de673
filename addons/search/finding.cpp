#include "addons/search/finding.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

namespace Corvan::search {

namespace {

constexpr std::size_t kFew = 1000;  // candidates; reading them takes about a millisecond
constexpr int64_t kLeast = 64;      // messages that a call gets further, even if the time is over
constexpr int64_t kMessagesBetweenLooks = 16;  // at the clock

// From the newest to the oldest.
bool is_before(const SearchPlace& a, const SearchPlace& b) {
  return a.sent_time != b.sent_time ? a.sent_time > b.sent_time : a.id > b.id;
}

template <typename Value, typename Element>
bool is_listed(const std::vector<Element>& list, const Value& value) {
  return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
}

std::string head_query() {
  return std::string("select ") + kMessageTime +
         ",session_id,session_type,object_name,sender from t_message where id=?";
}

// ?1 to ?3: the upper place; ?4: the lower time; ?5: the conversation.
std::string walk_query(const SearchOptions& options, bool by_index) {
  const std::string time = by_index ? "sent_time" : kMessageTime;
  std::string sql = "select id," + time + " from t_message where " + time + "<=?1 and (" + time +
                    "<?2 or id<?3) and " + time + ">=?4";
  if (options.session_id) sql += " and session_id=?5";
  if (options.session_id && options.session_types.size() == 1) {
    sql += " and session_type=" + std::to_string(options.session_types.front());
  }
  return sql + " order by " + time + " desc,id desc";
}

}  // namespace

Finding::Finding(StoreReader* store, Candidates* candidates, const Query& query,
                 const SearchOptions& options, const TimeBudget& budget)
    : store_(*store),
      candidates_(*candidates),
      query_(query),
      options_(options),
      budget_(budget),
      head_(store->connection(), head_query()) {}

SearchResults Finding::run() {
  if (const auto ids = few_candidates()) {
    look_at(*ids);
  } else {
    walk();
  }
  return std::move(results_);
}

std::optional<std::vector<int64_t>> Finding::few_candidates() {
  std::vector<int64_t> ids;
  if (!add_unindexed(&ids)) return std::nullopt;
  const auto indexed = candidates_.all(kFew - ids.size(), budget_);
  if (!indexed) return std::nullopt;
  ids.insert(ids.end(), indexed->begin(), indexed->end());
  return ids;
}

// False if there are too many.
bool Finding::add_unindexed(std::vector<int64_t>* ids) {
  Statement rows(store_.connection(),
                 "select id from t_message where id>?1 union all "
                 "select id from t_message where id<1 limit ?2");
  rows.bind(candidates_.highest(), static_cast<int64_t>(kFew));
  while (rows.row()) ids->push_back(rows.integer(0));
  return ids->size() < kFew;
}

void Finding::look_at(const std::vector<int64_t>& ids) {
  std::vector<SearchPlace> places;
  for (const int64_t id : ids) {
    SearchPlace place;
    if (is_wanted(id, &place)) places.push_back(place);
  }
  std::sort(places.begin(), places.end(), is_before);
  for (const SearchPlace& place : places) {
    if (matches(place.id) && !add(place)) return;
    if (!go_on_after(place)) return;
  }
}

void Finding::walk() {
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  Statement rows(store_.connection(), walk_query(options_, store_.has_time_order()));
  const SearchPlace before = options_.before.value_or(SearchPlace{kLast, kLast});
  const int64_t newest = std::min(before.sent_time, options_.to_time);
  if (options_.session_id) {
    rows.bind(newest, before.sent_time, before.id, options_.from_time,
              std::string_view(*options_.session_id));
  } else {
    rows.bind(newest, before.sent_time, before.id, options_.from_time);
  }
  while (rows.row()) {
    SearchPlace place{rows.integer(1), rows.integer(0)};
    if (candidates_.may_match(place.id) && is_wanted(place.id, &place) && matches(place.id) &&
        !add(place)) {
      return;
    }
    if (!go_on_after(place)) return;
  }
}

// Whether the options admit the message. Sets its place.
bool Finding::is_wanted(int64_t id, SearchPlace* place) {
  if (!head_.bind(id).row()) return false;
  *place = {head_.integer(0), id};
  const bool is_wanted =
      is_in_range(*place) && (!options_.session_id || head_.text(1) == *options_.session_id) &&
      is_listed(options_.session_types, static_cast<SessionType>(head_.integer(2))) &&
      is_listed(options_.object_names, head_.text(3)) &&
      (!options_.sender || head_.text(4) == *options_.sender);
  head_.reset();
  return is_wanted;
}

bool Finding::is_in_range(const SearchPlace& place) const {
  if (place.sent_time < options_.from_time || place.sent_time > options_.to_time) return false;
  return !options_.before || is_before(*options_.before, place);
}

bool Finding::matches(int64_t id) {
  const auto content = store_.content(id);
  return content && query_.matches(*content);
}

bool Finding::add(const SearchPlace& place) {
  if (results_.hits.size() == static_cast<std::size_t>(options_.limit)) {
    results_.next = SearchPlace{results_.hits.back().sent_time, results_.hits.back().id};
    return false;
  }
  results_.hits.push_back({place.id, place.sent_time});
  return true;
}

bool Finding::go_on_after(const SearchPlace& place) {
  if (++looked_at_ % kMessagesBetweenLooks != 0 || looked_at_ < kLeast) return true;
  if (!budget_.is_over()) return true;
  results_.next = place;
  return false;
}

}  // namespace Corvan::search
