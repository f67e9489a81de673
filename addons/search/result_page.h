// The results of a search so far.

#ifndef ADDONS_SEARCH_RESULT_PAGE_H_
#define ADDONS_SEARCH_RESULT_PAGE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "addons/search/message_search.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// From the newest to the oldest.
inline bool is_before(const SearchPlace& a, const SearchPlace& b) {
  return a.sent_time != b.sent_time ? a.sent_time > b.sent_time : a.id > b.id;
}

// A page of hits, which is filled in their order, and how far the search has come.
class ResultPage {
 public:
  ResultPage(const SearchOptions& options, const TimeBudget& budget)
      : options_(options), budget_(budget), reached_(options.before) {}

  // All hits before this place are on this page or on earlier ones.
  const std::optional<SearchPlace>& reached() const { return reached_; }
  // The newest place that a message still to be found can have.
  SearchPlace begin() const;
  // Whether a message here is still wanted.
  bool admits(const SearchPlace& place) const;

  std::size_t hits() const { return results_.hits.size(); }
  // The number of hits that ends the search: one more than the page has room for.
  std::size_t missing() const {
    return static_cast<std::size_t>(options_.limit) + 1 - results_.hits.size();
  }
  // Both return false if the search ends here: because the page is full, or because the time is
  // over.
  bool add(const SearchPlace& hit);
  bool reach(const SearchPlace& place);

  void count_message() { ++looked_at_; }
  int64_t looked_at() const { return looked_at_; }
  // Each call gets further than the one before, however short its time is.
  bool is_time_over() const { return looked_at_ >= kLeast && budget_.is_over(); }
  const TimeBudget& budget() const { return budget_; }
  // The call may take longer. Another call would have to do the same work again.
  void extend_time(TimeBudget::Clock::duration duration) { budget_.extend(duration); }

  SearchResults take() { return std::move(results_); }

 private:
  static constexpr int64_t kLeast = 16;  // messages that a call gets further

  const SearchOptions& options_;
  TimeBudget budget_;
  std::optional<SearchPlace> reached_;
  int64_t looked_at_ = 0;
  SearchResults results_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_RESULT_PAGE_H_
