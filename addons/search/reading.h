// The reading half of the search.

#ifndef ADDONS_SEARCH_READING_H_
#define ADDONS_SEARCH_READING_H_

#include <memory>
#include <mutex>
#include <string>

#include "addons/search/connection.h"
#include "addons/search/file_identity.h"
#include "addons/search/message_search.h"
#include "addons/search/pair_table.h"
#include "addons/search/query.h"
#include "addons/search/store_reader.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// Has connections of its own, so that it does not wait for the writing half. One thread at a time
// uses it. The members throw SqlError, with the status kNoStore or kStoreError, and std::bad_alloc.
class Reading {
 public:
  Reading(std::string store, std::string index)
      : store_file_(std::move(store)), index_file_(std::move(index)) {}

  // Without an index that can be read, and without `use_index`, all messages are looked at.
  // `*is_damaged` becomes true if the index turns out to be damaged.
  SearchResults find(const Query& query, const SearchOptions& options, const TimeBudget& budget,
                     bool use_index, bool* is_damaged);
  SearchProgress progress();

  std::mutex& mutex() { return mutex_; }

  // Closes the index until the lock is released. Called without mutex().
  std::unique_lock<std::mutex> close_index();

 private:
  void open();
  void close();
  SearchResults find_with(const Connection* index, const Query& query, const SearchOptions& options,
                          const TimeBudget& budget);

  const std::string store_file_;
  const std::string index_file_;
  std::mutex mutex_;
  std::unique_ptr<StoreReader> store_;
  FileIdentity identity_;  // of the index
  std::unique_ptr<Connection> index_;
  std::unique_ptr<PairTable> pairs_;  // of index_
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_READING_H_
