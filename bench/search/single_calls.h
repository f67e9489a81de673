#ifndef BENCH_SEARCH_SINGLE_CALLS_H_
#define BENCH_SEARCH_SINGLE_CALLS_H_

#include <string>
#include <vector>

#include "bench/search/filled_store.h"
#include "bench/search/queries.h"
#include "bench/search/times.h"
#include "bench/support/report.h"

namespace corvan_bench {

// Times of the library's calls on a store, in microseconds.
struct SingleCalls {
  Times catch_up_processor;  // catch_up() of one message
  Times catch_up_elapsed;
  Times nothing_to_do;    // catch_up() of none
  Times opening;          // of a new object
  Times opening_find;     // opening, and the first find()
  Times sweep_processor;  // per message, of an unchanged store
  Times find_saving;      // find() while another thread saves messages and indexes them
  Times find_building;    // find() with a time limit while another thread indexes the whole store
};

// How often each call is measured.
struct CallCounts {
  int catch_ups;
  int openings;
  int finds;
};

// Measures on a store with an index of all messages. Saves messages with contents of `contents`.
SingleCalls measure_calls(FilledStore& store, const std::vector<SearchQuery>& queries,
                          const CallCounts& counts);

void print(const SingleCalls& calls, const std::string& store, Report& report);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_SINGLE_CALLS_H_
