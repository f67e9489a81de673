#ifndef BENCH_SEARCH_RECALL_H_
#define BENCH_SEARCH_RECALL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bench/search/contender.h"
#include "bench/search/queries.h"
#include "bench/support/report.h"

namespace corvan_bench {

// All messages that match some queries.
class Matches {
 public:
  // Of the first queries of each class. `all` is larger than any number of messages.
  Matches(const std::vector<SearchQuery>& queries, std::size_t of_each_class, int64_t all);

  // Asks this contender, which is open, what matches.
  void add(Contender& contender);

  // Prints how much of what the first contender finds the others find as well, and what they find
  // besides.
  void print(const std::string& store, Report& report) const;

  // How many messages one contender finds and another does not, in both directions. Only of queries
  // that `counts`.
  template <typename Condition>
  double differences(const std::string& contender, const std::string& other,
                     const Condition& counts) const {
    double sum = 0;
    for (std::size_t i = 0; i < queries_.size(); ++i) {
      if (counts(queries_[i])) sum += different(of(contender)[i], of(other)[i]);
    }
    return sum;
  }

 private:
  struct Found {
    std::string contender;
    std::vector<Contender::Ids> ids;  // of each query, sorted
  };
  struct Counts;

  static double different(const Contender::Ids& ids, const Contender::Ids& others);
  const std::vector<Contender::Ids>& of(const std::string& contender) const;
  Counts count(QueryClass query_class, const Found& found) const;

  std::vector<SearchQuery> queries_;
  const int64_t all_;
  std::vector<Found> found_;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_RECALL_H_
