#ifndef BENCH_SEARCH_ASKING_H_
#define BENCH_SEARCH_ASKING_H_

#include <cstddef>
#include <string>
#include <vector>

#include "bench/search/contender.h"
#include "bench/search/queries.h"
#include "bench/search/times.h"
#include "bench/support/report.h"

namespace corvan_bench {

struct Answer {
  const SearchQuery* query;
  double time = 0;       // in microseconds
  double processor = 0;  // microseconds of processor time
  std::size_t messages = 0;
};

// How long the newest 20 messages took a contender, query by query.
struct Asked {
  std::string contender;
  std::vector<Answer> answers;

  Times of(QueryClass query_class, double Answer::*time = &Answer::time) const;
  // Of all classes but kSingleLetter.
  Times usual(double Answer::*time = &Answer::time) const;
};

// Asks each contender, which is open, each query once, `warm_up` first queries without measuring
// them. The contenders take turns in blocks of queries.
std::vector<Asked> ask(const std::vector<Contender*>& contenders,
                       const std::vector<SearchQuery>& queries, std::size_t warm_up);

// Prints the times by class; of the last contender also processor times, on which other processes
// have less influence, and the slowest queries.
void print(const std::vector<Asked>& asked, const std::string& store, Report& report);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_ASKING_H_
