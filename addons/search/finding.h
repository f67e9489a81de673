// One search.

#ifndef ADDONS_SEARCH_FINDING_H_
#define ADDONS_SEARCH_FINDING_H_

#include <cstdint>
#include <vector>

#include "addons/search/candidates.h"
#include "addons/search/message_check.h"
#include "addons/search/message_search.h"
#include "addons/search/query.h"
#include "addons/search/result_page.h"
#include "addons/search/store_reader.h"
#include "addons/search/time_blocks.h"
#include "addons/search/time_budget.h"
#include "addons/search/time_walk.h"

namespace Corvan::search {

// The order of the results is that of the store's times. The index knows no times, because the
// store can change them and the index is not told. So:
// 1. The newest messages of the store are read in their order, and those that the index proposes
//    are looked at.
// 2. If the index proposes few messages in all, they are sorted by time and looked at in that
//    order.
// 3. Otherwise, the rest of the store is searched block by block in the order of time. With many
//    candidates, a page is soon full.
// The walk of 1. goes on first if the page will soon be full, or in a conversation, which may have
// few messages. A store without an index by time is walked to its end. Messages that are not
// indexed count as candidates.
class Finding {
 public:
  Finding(StoreReader* store, Candidates* candidates, const Query& query,
          const SearchOptions& options, const TimeBudget& budget);

  SearchResults run();

 private:
  int64_t messages_to_end() const;
  void search_rest();
  bool add_few(std::vector<int64_t>* ids);
  void extend_time(TimeBudget::Clock::time_point begin);
  std::size_t affordable_candidates();
  bool add_unindexed(std::vector<int64_t>* ids);
  void look_at(const std::vector<int64_t>& ids);
  void search_blocks();
  bool walk_through(const TimeBlock& block);
  bool search_block(const TimeBlock& block);
  bool add_hits(std::vector<SearchPlace>* hits);

  StoreReader& store_;
  Candidates& candidates_;
  const Query& query_;
  const SearchOptions& options_;
  const bool has_time_order_;
  ResultPage page_;
  MessageCheck check_;
  TimeWalk walk_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FINDING_H_
