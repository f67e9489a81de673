#include "addons/search/finding.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

namespace Corvan::search {

namespace {

// A query that many messages match is answered by so many of them. Looking at the messages
// themselves takes longer than at candidates.
constexpr int64_t kFirst = 512;
constexpr int64_t kFirstOfPrefix = 256;
// Numbers of candidates, by the cost of the ways to look at them in a million messages.
constexpr std::size_t kFew = 800;
constexpr std::size_t kSome = 600;
constexpr std::size_t kListed = 2500;
constexpr int64_t kLeast = 16;  // messages that a call gets further, even if the time is over
constexpr int64_t kMessagesBetweenLooks = 16;  // at the clock

// From the newest to the oldest.
bool is_before(const SearchPlace& a, const SearchPlace& b) {
  return a.sent_time != b.sent_time ? a.sent_time > b.sent_time : a.id > b.id;
}

template <typename Value, typename Element>
bool is_listed(const std::vector<Element>& list, const Value& value) {
  return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
}

std::string head_query(bool has_time_order, bool has_filter) {
  return std::string("select ") + (has_time_order ? "sent_time" : kMessageTime) +
         (has_filter ? ",session_id,session_type,object_name,sender" : "") +
         " from t_message where id=?";
}

// The messages at ?1, those with ids below ?2; or the messages before ?1, those from ?2 on. ?3 is
// the conversation. Two queries take less time for each message than one for both.
std::string walk_query(const SearchOptions& options, bool by_index, bool at_time) {
  const std::string time = by_index ? "sent_time" : kMessageTime;
  std::string sql = "select id," + time + " from t_message where " + time;
  sql += at_time ? "=?1 and id<?2" : "<?1 and " + time + ">=?2";
  if (options.session_id) sql += " and session_id=?3";
  if (options.session_id && options.session_types.size() == 1) {
    sql += " and session_type=" + std::to_string(options.session_types.front());
  }
  return sql + " and wanted(id) order by " + time + " desc,id desc";
}

}  // namespace

Finding::Finding(StoreReader* store, Candidates* candidates, const Query& query,
                 const SearchOptions& options, const TimeBudget& budget)
    : store_(*store),
      candidates_(*candidates),
      query_(query),
      options_(options),
      budget_(budget),
      has_filter_(options.session_id || options.sender || !options.session_types.empty() ||
                  !options.object_names.empty()),
      has_time_order_(store->has_time_order()),
      before_(options.before),
      head_(store->connection(), head_query(has_time_order_, has_filter_)) {}

SearchResults Finding::run() {
  if (!walk(candidates_.has_prefix() ? kFirstOfPrefix : kFirst)) return std::move(results_);
  if (const auto ids = listed_candidates()) {
    if (look_at_largest(*ids)) return std::move(results_);
    if (ids->size() <= kFew) {
      look_at(*ids);
      return std::move(results_);
    }
  }
  walk(std::numeric_limits<int64_t>::max());
  return std::move(results_);
}

std::optional<std::vector<int64_t>> Finding::listed_candidates() {
  std::vector<int64_t> ids;
  if (!add_unindexed(&ids) || candidates_.estimate() > 2 * kListed) return std::nullopt;
  const auto indexed = candidates_.all(kListed - ids.size(), budget_);
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

// Hits until the search ends: one more than the page has room for.
std::size_t Finding::wanted_hits() const {
  return static_cast<std::size_t>(options_.limit) + 1 - results_.hits.size();
}

// True if the page is full.
bool Finding::look_at_largest(std::vector<int64_t> ids) {
  if (!has_time_order_ || ids.size() < kSome || ids.size() / 8 < wanted_hits()) return false;
  std::sort(ids.begin(), ids.end(), std::greater<>());
  std::vector<SearchPlace> found;
  auto id = ids.cbegin();
  while (id != ids.cbegin() + static_cast<std::ptrdiff_t>(ids.size() / 4) &&
         found.size() < wanted_hits() && !budget_.is_over()) {
    add_if_found(*id++, &found);
  }
  if (found.size() < wanted_hits() || budget_.is_over() || !add_newer(ids, id, &found))
    return false;
  std::sort(found.begin(), found.end(), is_before);
  return std::any_of(found.begin(), found.end(),
                     [this](const SearchPlace& place) { return !add(place); });
}

bool Finding::add_if_found(int64_t id, std::vector<SearchPlace>* found) {
  SearchPlace place;
  if (!is_wanted(id, &place) || !matches(id)) return false;
  found->push_back(place);
  return true;
}

// Adds those of the candidates from `rest` on that are newer than a hit. False if many other
// messages with smaller ids are newer.
bool Finding::add_newer(const std::vector<int64_t>& ids,
                        const std::vector<int64_t>::const_iterator& rest,
                        std::vector<SearchPlace>* found) {
  const SearchPlace oldest = *std::max_element(found->begin(), found->end(), is_before);
  // The plus keeps SQLite from reading the table by ids.
  Statement rows(store_.connection(),
                 "select id from t_message where sent_time between ? and ? and +id<?");
  rows.bind(oldest.sent_time, before_ ? before_->sent_time : options_.to_time, *std::prev(rest));
  for (std::size_t count = 0; rows.row(); ++count) {
    if (count == kFew) return false;
    const int64_t id = rows.integer(0);
    if (std::binary_search(rest, ids.end(), id, std::greater<>())) add_if_found(id, found);
  }
  return true;
}

void Finding::look_at(const std::vector<int64_t>& ids) {
  std::vector<SearchPlace> places;
  for (const int64_t id : ids) {
    SearchPlace place;
    if (is_wanted(id, &place)) places.push_back(place);
  }
  std::sort(places.begin(), places.end(), is_before);
  for (const SearchPlace& place : places) {
    ++looked_at_;
    if (matches(place.id) && !add(place)) return;
    if (!go_on_after(place)) return;
  }
}

// Goes on with at most so many messages. False if the search ends here.
bool Finding::walk(int64_t count) {
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  SearchPlace begin = before_.value_or(SearchPlace{kLast, kLast});
  if (begin.sent_time > options_.to_time) begin = {options_.to_time, kLast};
  const int64_t end = count > kLast - looked_at_ ? kLast : looked_at_ + count;
  if (begin.sent_time >= options_.from_time) {
    const Walk result = walk_along(true, begin.sent_time, begin.id, end);
    if (result != Walk::kThrough) return result == Walk::kPaused;
  }
  return walk_along(false, begin.sent_time, options_.from_time, end) == Walk::kPaused;
}

Finding::Walk Finding::walk_along(bool at_time, int64_t time, int64_t limit, int64_t end) {
  Statement rows(store_.connection(), walk_query(options_, has_time_order_, at_time));
  if (options_.session_id) {
    rows.bind(time, limit, std::string_view(*options_.session_id));
  } else {
    rows.bind(time, limit);
  }
  while (next(&rows, end)) {
    const SearchPlace place{rows.integer(1), rows.integer(0)};
    if (is_found(place.id) && !add(place)) return Walk::kEnded;
    before_ = place;
    if (!go_on_after(place)) return Walk::kEnded;
    if (looked_at_ >= end) return Walk::kPaused;
  }
  return Walk::kThrough;
}

// SQLite passes over the messages that the index does not propose, but for the one at which the
// walk ends or looks at the clock.
bool Finding::next(Statement* rows, int64_t end) {
  store_.set_wanted([this, end](int64_t id) {
    ++looked_at_;
    return candidates_.may_match(id) || looked_at_ >= end || is_over();
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

// Each call gets further than the one before, however short its time is.
bool Finding::is_over() const {
  return looked_at_ % kMessagesBetweenLooks == 0 && looked_at_ >= kLeast && budget_.is_over();
}

bool Finding::is_found(int64_t id) {
  SearchPlace place;
  return (!has_filter_ || is_wanted(id, &place)) && matches(id);
}

// Whether the options admit the message. Sets its place.
bool Finding::is_wanted(int64_t id, SearchPlace* place) {
  if (!head_.bind(id).row()) return false;
  *place = {head_.integer(0), id};
  const bool is_wanted = is_in_range(*place) && (!has_filter_ || passes_filter());
  head_.reset();
  return is_wanted;
}

bool Finding::passes_filter() const {
  return (!options_.session_id || head_.text(1) == *options_.session_id) &&
         is_listed(options_.session_types, static_cast<SessionType>(head_.integer(2))) &&
         is_listed(options_.object_names, head_.text(3)) &&
         (!options_.sender || head_.text(4) == *options_.sender);
}

bool Finding::is_in_range(const SearchPlace& place) const {
  if (place.sent_time < options_.from_time || place.sent_time > options_.to_time) return false;
  return !before_ || is_before(*before_, place);
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
  if (looked_at_ < kLeast || !budget_.is_over()) return true;
  results_.next = place;
  return false;
}

}  // namespace Corvan::search
