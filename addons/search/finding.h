// One search.

#ifndef ADDONS_SEARCH_FINDING_H_
#define ADDONS_SEARCH_FINDING_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "addons/search/candidates.h"
#include "addons/search/message_search.h"
#include "addons/search/query.h"
#include "addons/search/store_reader.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// The order of the results is that of the store's times. The index knows no times, since the store
// changes them without telling. So:
// 1. The newest messages of the store are read in their order, and those that the index proposes
//    are looked at.
// 2. If the index proposes few messages in all, they are sorted by time and looked at in that
//    order.
// 3. Otherwise, the rest of the store is read as in 1. With many candidates, a page is soon full.
class Finding {
 public:
  Finding(StoreReader* store, Candidates* candidates, const Query& query,
          const SearchOptions& options, const TimeBudget& budget);

  SearchResults run();

 private:
  std::optional<std::vector<int64_t>> listed_candidates();
  bool add_unindexed(std::vector<int64_t>* ids);
  void look_at(const std::vector<int64_t>& ids);
  bool look_at_largest(std::vector<int64_t> ids);
  bool add_newer(const std::vector<int64_t>& ids, const std::vector<int64_t>::const_iterator& rest,
                 std::vector<SearchPlace>* found);
  bool add_if_found(int64_t id, std::vector<SearchPlace>* found);
  std::size_t wanted_hits() const;
  enum class Walk { kThrough, kPaused, kEnded };
  bool walk(int64_t count);
  Walk walk_along(bool at_time, int64_t time, int64_t limit, int64_t end);
  bool next(Statement* rows, int64_t end);
  bool is_over() const;
  bool is_found(int64_t id);
  bool is_wanted(int64_t id, SearchPlace* place);
  bool passes_filter() const;
  bool is_in_range(const SearchPlace& place) const;
  bool matches(int64_t id);
  // Both return false when the search ends here.
  bool add(const SearchPlace& place);
  bool go_on_after(const SearchPlace& place);

  StoreReader& store_;
  Candidates& candidates_;
  const Query& query_;
  const SearchOptions& options_;
  const TimeBudget& budget_;
  const bool has_filter_;
  const bool has_time_order_;
  std::optional<SearchPlace> before_;  // where the search goes on
  Statement head_;
  int64_t looked_at_ = 0;
  SearchResults results_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FINDING_H_
