#include "addons/search/result_page.h"

#include <limits>

namespace Corvan::search {

SearchPlace ResultPage::begin() const {
  constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
  const SearchPlace place = reached_.value_or(SearchPlace{kLast, kLast});
  return place.sent_time > options_.to_time ? SearchPlace{options_.to_time, kLast} : place;
}

bool ResultPage::admits(const SearchPlace& place) const {
  if (place.sent_time < options_.from_time || place.sent_time > options_.to_time) return false;
  return !reached_ || is_before(*reached_, place);
}

bool ResultPage::add(const SearchPlace& hit) {
  if (missing() == 1) {
    results_.next = SearchPlace{results_.hits.back().sent_time, results_.hits.back().id};
    return false;
  }
  results_.hits.push_back({hit.id, hit.sent_time});
  return true;
}

bool ResultPage::reach(const SearchPlace& place) {
  reached_ = place;
  if (!is_time_over()) return true;
  results_.next = place;
  return false;
}

}  // namespace Corvan::search
