#include "addons/search/finding.h"

#include <algorithm>
#include <limits>

namespace Corvan::search {

namespace {

// A query that many messages match is answered by so many of them. Looking at the messages
// themselves takes longer than at candidates.
constexpr int64_t kFirst = 512;
constexpr int64_t kFirstOfPrefix = 256;
constexpr int64_t kNear = 4096;

// Looking at a candidate takes as long as reading so many messages of a block, or passing so many
// of a conversation.
constexpr int64_t kReadMessages = 80;
constexpr std::size_t kPassedMessages = 15;

constexpr TimeBudget::Duration kTimeOfCandidate{4};  // at most, usually
constexpr int64_t kFew = 200;                        // candidates that are always looked at
constexpr int64_t kMost = 2500;          // candidates that are looked at in the order of ids
constexpr std::size_t kFewInBlock = 48;  // candidates that are looked at one by one
constexpr int64_t kFalse = 8;            // candidates of a phrase for each hit, as a guess

constexpr int64_t kOldest = std::numeric_limits<int64_t>::min();

}  // namespace

Finding::Finding(StoreReader* store, Candidates* candidates, const Query& query,
                 const SearchOptions& options, const TimeBudget& budget)
    : store_(*store),
      candidates_(*candidates),
      query_(query),
      options_(options),
      has_time_order_(store->has_time_order()),
      page_(options, budget),
      check_(*store, query, options, has_time_order_),
      walk_(store, candidates, &check_, &page_, options, has_time_order_) {}

SearchResults Finding::run() {
  const bool goes_on = walk_.pass(candidates_.has_prefix() ? kFirstOfPrefix : kFirst);
  if (goes_on && walk_.pass(messages_to_end())) search_rest();
  return page_.take();
}

// How many further messages fill the page if they have as many hits as those that were passed, and
// a few more; 0 if there are too many.
int64_t Finding::messages_to_end() const {
  const auto hits = static_cast<int64_t>(page_.hits());
  if (hits == 0) return 0;
  const int64_t messages = page_.looked_at() * static_cast<int64_t>(page_.missing()) / hits;
  return messages <= kNear ? 2 * messages : 0;
}

void Finding::search_rest() {
  const auto begin = TimeBudget::Clock::now();
  std::vector<int64_t> ids;
  const bool are_few = add_few(&ids);
  const std::size_t count = are_few ? ids.size() : candidates_.estimate();
  extend_time(begin);
  // A conversation can have few messages.
  if (options_.session_id && !walk_.pass(static_cast<int64_t>(kPassedMessages * count))) return;
  if (are_few) {
    look_at(ids);
  } else if (has_time_order_) {
    search_blocks();
  } else {
    walk_.pass_down_to(kOldest);
  }
}

// Adds all messages that may match. False if looking at them takes more time than reading blocks.
bool Finding::add_few(std::vector<int64_t>* ids) {
  const std::size_t limit = affordable_candidates();
  return add_unindexed(ids) && candidates_.estimate() <= 2 * limit &&
         candidates_.add_all(limit, page_.budget(), ids);
}

std::size_t Finding::affordable_candidates() {
  const auto in_time = page_.budget().left() / kTimeOfCandidate;
  if (in_time < kMost) return static_cast<std::size_t>(in_time);
  if (!has_time_order_) return static_cast<std::size_t>(kMost);
  const int64_t messages = candidates_.messages();
  const auto candidates = static_cast<int64_t>(std::max<std::size_t>(candidates_.estimate(), 1));
  int64_t needed = static_cast<int64_t>(page_.missing()) * (messages / candidates);
  if (query_.has_phrase() || check_.has_filter()) needed *= kFalse;
  const int64_t unread = std::min(needed, messages) - store_.time_blocks().messages();
  return static_cast<std::size_t>(std::clamp(unread / kReadMessages, kFew, kMost));
}

// False if there are too many.
bool Finding::add_unindexed(std::vector<int64_t>* ids) {
  Statement rows(store_.connection(),
                 "select id from t_message where id>?1 union all "
                 "select id from t_message where id<1 limit ?2");
  rows.bind(candidates_.highest(), kFew);
  while (rows.row()) ids->push_back(rows.integer(0));
  return ids->size() < static_cast<std::size_t>(kFew);
}

void Finding::look_at(const std::vector<int64_t>& ids) {
  std::vector<SearchPlace> places;
  for (const int64_t id : ids) {
    const auto place = check_.place_of(id);
    if (place && page_.admits(*place)) places.push_back(*place);
  }
  std::sort(places.begin(), places.end(), is_before);
  for (const SearchPlace& place : places) {
    page_.count_message();
    if (check_.place_of_hit(place.id) && !page_.add(place)) return;
    if (!page_.reach(place)) return;
  }
}

void Finding::search_blocks() {
  int64_t time = page_.begin().sent_time;
  while (time >= options_.from_time) {
    const TimeBlock& block = store_.time_blocks().at(time);
    if (!search_block(block) || block.oldest == kOldest) return;
    time = block.oldest - 1;
  }
}

// Merging the lists of a prefix takes long, and the next call must do it again. So this call may
// use them for as long as the merge took.
void Finding::extend_time(TimeBudget::Clock::time_point begin) {
  if (candidates_.has_prefix()) page_.extend_time(TimeBudget::Clock::now() - begin);
}

// Goes through the messages of a block. False if the search ends here. SQLite cannot seek by time
// in a conversation of several kinds: there, all blocks take as long as one.
bool Finding::walk_through(const TimeBlock& block) {
  if (!options_.session_id || options_.session_types.size() == 1) {
    return walk_.pass_down_to(block.oldest);
  }
  walk_.pass_down_to(kOldest);
  return false;
}

// False if the search ends here.
bool Finding::search_block(const TimeBlock& block) {
  std::vector<int64_t> ids;
  const auto begin = TimeBudget::Clock::now();
  const bool has_few =
      candidates_.add_between(block.smallest_id, block.largest_id, kFewInBlock, &ids);
  extend_time(begin);
  if (!has_few) {
    if (!walk_through(block)) return false;
  } else {
    std::vector<SearchPlace> hits;
    for (const int64_t id : ids) {
      page_.count_message();
      const auto place = check_.place_of_hit(id);
      if (place && page_.admits(*place) && place->sent_time >= block.oldest) hits.push_back(*place);
    }
    if (!add_hits(&hits)) return false;
  }
  page_.count_message();
  return page_.reach({block.oldest, kOldest});
}

// False if the search ends here.
bool Finding::add_hits(std::vector<SearchPlace>* hits) {
  std::sort(hits->begin(), hits->end(), is_before);
  return std::all_of(hits->begin(), hits->end(),
                     [this](const SearchPlace& hit) { return page_.add(hit); });
}

}  // namespace Corvan::search
