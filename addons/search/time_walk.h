// Going through the store's messages in the order of time.

#ifndef ADDONS_SEARCH_TIME_WALK_H_
#define ADDONS_SEARCH_TIME_WALK_H_

#include <cstdint>

#include "addons/search/candidates.h"
#include "addons/search/message_check.h"
#include "addons/search/message_search.h"
#include "addons/search/result_page.h"
#include "addons/search/store_reader.h"

namespace Corvan::search {

// Adds the hits among the messages that it passes to a page.
class TimeWalk {
 public:
  TimeWalk(StoreReader* store, Candidates* candidates, MessageCheck* check, ResultPage* page,
           const SearchOptions& options, bool has_time_order);

  // Goes on from where the page is: with at most so many messages, or to the last one that was sent
  // at `oldest` or later. False if the search ends here.
  bool pass(int64_t count);
  bool pass_down_to(int64_t oldest);

 private:
  enum class Result { kThrough, kPaused, kEnded };
  Result pass(int64_t oldest, int64_t end);
  Result pass_some(Statement* rows, int64_t time, int64_t limit, int64_t end);
  bool next(Statement* rows, int64_t end);
  bool is_over() const;

  StoreReader& store_;
  Candidates& candidates_;
  MessageCheck& check_;
  ResultPage& page_;
  const SearchOptions& options_;
  Statement at_time_;
  Statement before_time_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TIME_WALK_H_
