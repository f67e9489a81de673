#ifndef BENCH_SEARCH_QUERY_SAMPLE_H_
#define BENCH_SEARCH_QUERY_SAMPLE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "bench/search/queries.h"

namespace corvan_bench {

// At most this many queries of each class, in random order, drawn from the messages of a store. No
// two are equal, except those of one letter, of which there are too few. A class is missing if the
// texts have nothing for it.
std::vector<SearchQuery> sample_queries(const std::string& store_file, std::size_t of_each_class);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_QUERY_SAMPLE_H_
