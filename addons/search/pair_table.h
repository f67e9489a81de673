// The index's table `pair`: the common pairs of each shard's table.

#ifndef ADDONS_SEARCH_PAIR_TABLE_H_
#define ADDONS_SEARCH_PAIR_TABLE_H_

#include <cstdint>
#include <list>
#include <utility>

#include "addons/search/common_pairs.h"
#include "addons/search/connection.h"

namespace Corvan::search {

// What was read is kept: the pairs of a table never change.
class PairTable {
 public:
  explicit PairTable(const Connection& index) : index_(index) {}

  // Throws SqlError if the row is missing or damaged. The reference is valid until remove() or
  // forget().
  const CommonPairs& of(int64_t number);

  void add(int64_t number, const PairLists& lists);
  void remove(int64_t number);
  // Forgets what was read, after a rollback.
  void forget() { pairs_.clear(); }

 private:
  const Connection& index_;
  std::list<std::pair<int64_t, CommonPairs>> pairs_;  // by the table
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_PAIR_TABLE_H_
