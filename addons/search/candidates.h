// Which messages the index proposes for a query.

#ifndef ADDONS_SEARCH_CANDIDATES_H_
#define ADDONS_SEARCH_CANDIDATES_H_

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/index_file.h"
#include "addons/search/pair_table.h"
#include "addons/search/query.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// The index is read in a transaction of the caller's. What was read is kept.
class Candidates {
 public:
  // `index` and `pairs` may be null; then every message may match.
  Candidates(const Connection* index, PairTable* pairs, const Query& query);

  // Messages above this id, and below 1, are not in the index.
  int64_t highest() const { return state_.highest; }

  // Whether FTS5 must look up all tokens with a given beginning. It merges their lists each time,
  // for the whole table.
  bool has_prefix() const { return has_prefix_; }

  // Whether the message may match the query. The first questions about unread ids return
  // true: looking at a few messages is faster than reading the index.
  bool may_match(int64_t id);

  // Adds the ids from `first` to `last` of messages that may match. False if there are more than
  // `limit`, or some are not in the index.
  bool add_between(int64_t first, int64_t last, std::size_t limit, std::vector<int64_t>* ids);

  // How many messages are in the index.
  int64_t messages() const;

  // About how many messages in the index may match: as many as among the newest ones.
  std::size_t estimate();

  // Adds the ids of all messages in the index that may match. False if there are more than `limit`,
  // or the time is over.
  bool add_all(std::size_t limit, const TimeBudget& budget, std::vector<int64_t>* ids);

 private:
  // What a shard's table is asked for.
  struct Match {
    uint64_t pairs = 0;  // a bit for each of the query's pairs that has a token
    std::string text;
    bool has_prefix = false;
  };
  struct Range {
    int64_t end = 0;
    std::vector<int64_t> ids;
  };

  std::size_t sampled_shard() const;
  std::size_t estimated();
  int64_t next_size();
  const Match& match_of(std::size_t shard);
  Match choose_match(std::size_t shard, uint64_t pairs) const;
  std::vector<MatchExpression::Token> tokens_with(uint64_t pairs) const;
  const Range* range_of(int64_t id);
  const Range* read_around(int64_t id);
  const Range* read(std::size_t shard, int64_t begin, int64_t end, std::size_t limit);
  std::size_t shard_of(int64_t id) const;
  int64_t end_of(std::size_t shard) const;
  Statement& statement(std::size_t shard);

  const Connection* const index_;
  PairTable* const pairs_;
  const Query& query_;
  State state_;
  std::vector<Shard> shards_;
  bool has_prefix_ = false;
  std::list<Match> matches_;
  std::vector<std::unique_ptr<Statement>> statements_;  // of the shards
  std::map<int64_t, Range> ranges_;                     // by their first id
  std::map<int64_t, Range>::const_iterator last_;       // the range of the last question
  int questions_ = 0;
  int doublings_ = 0;
  std::optional<std::size_t> estimate_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CANDIDATES_H_
