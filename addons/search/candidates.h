// Which messages the index proposes for a query.

#ifndef ADDONS_SEARCH_CANDIDATES_H_
#define ADDONS_SEARCH_CANDIDATES_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/index_file.h"
#include "addons/search/query.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// The index is read in a transaction of the caller's.
class Candidates {
 public:
  // `index` may be null; then every message may match.
  Candidates(const Connection* index, const Query& query);

  // Messages above this id, and below 1, are not in the index.
  int64_t highest() const { return state_.highest; }

  // Whether the message may match the query. The index is asked for a block of ids only after some
  // questions about it, because looking at a few messages takes less time.
  bool may_match(int64_t id);

  // The ids of all messages in the index that may match; nothing if there are more than `limit`, or
  // the time is over.
  std::optional<std::vector<int64_t>> all(std::size_t limit, const TimeBudget& budget);

 private:
  struct Block {
    int questions = 0;
    bool is_loaded = false;
    std::vector<int64_t> ids;
  };

  int64_t block_of(int64_t id) const;
  Block& block(int64_t number);
  const Shard* shard_of(int64_t id) const;
  void load(int64_t block, Block* result);
  void load_part(std::size_t shard, int64_t begin, int64_t end, std::vector<int64_t>* ids);
  int64_t end_of(std::size_t shard) const;
  Statement& statement(int64_t number);

  const Connection* const index_;
  const Query& query_;
  State state_;
  std::vector<Shard> shards_;
  std::map<int64_t, std::unique_ptr<Statement>> statements_;  // by the shard's number
  std::unordered_map<int64_t, Block> blocks_;                 // by block_of()
  Block* last_block_ = nullptr;
  int64_t last_number_ = 0;  // of it
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CANDIDATES_H_
