#include "addons/search/reading.h"

#include <algorithm>
#include <optional>

#include "addons/search/candidates.h"
#include "addons/search/finding.h"
#include "addons/search/index_file.h"
#include "addons/search/log_line.h"

namespace Corvan::search {

void Reading::open() {
  if (store_ != nullptr && identity_of(store_file_) != store_->identity()) store_.reset();
  if (store_ == nullptr) store_ = std::make_unique<StoreReader>(store_file_);
  const FileIdentity identity = identity_of(index_file_);
  if (index_ != nullptr && identity == identity_) return;
  close();
  if (!identity) return;
  auto index = open_index_for_reading(index_file_);
  if (index != nullptr) pairs_ = std::make_unique<PairTable>(*index);
  index_ = std::move(index);
  identity_ = identity;
}

void Reading::close() {
  pairs_.reset();
  index_.reset();
}

std::unique_lock<std::mutex> Reading::close_index() {
  std::unique_lock<std::mutex> lock(mutex_);
  close();
  identity_ = {};
  return lock;
}

SearchResults Reading::find(const Query& query, const SearchOptions& options,
                            const TimeBudget& budget, bool use_index, bool* is_damaged) {
  open();
  try {
    return find_with(use_index ? index_.get() : nullptr, query, options, budget);
  } catch (const SqlError& error) {
    if (error.status() != SearchStatus::kIndexError) throw;
    log_line(error.text());
    *is_damaged = is_damage(error);
    close();
  }
  return find_with(nullptr, query, options, budget);
}

SearchResults Reading::find_with(const Connection* index, const Query& query,
                                 const SearchOptions& options, const TimeBudget& budget) {
  std::optional<Transaction> index_reading;
  if (index != nullptr) index_reading.emplace(*index, "begin");
  const Transaction store_reading(store_->connection(), "begin");
  store_->time_blocks().refresh();
  Candidates candidates(index, pairs_.get(), query);
  return Finding(store_.get(), &candidates, query, options, budget).run();
}

namespace {

// Sets the number of messages that the index has.
State read_index(const Connection& index, int64_t* messages) {
  const Transaction reading(index, "begin");
  Statement shards(index, kShardQuery);
  for (const Shard& shard : read_shards(&shards)) *messages += shard.messages;
  Statement state(index, kStateQuery);
  return read_state(&state);
}

}  // namespace

SearchProgress Reading::progress() {
  open();
  SearchProgress progress;
  const State state = index_ == nullptr ? State() : read_index(*index_, &progress.indexed);
  const int64_t newest = store_->connection().number("select max(id) from t_message");
  progress.waiting = std::max<int64_t>(newest - state.highest, 0);
  progress.is_swept = state.is_swept;
  if (state.highest > 0) {
    progress.swept = static_cast<double>(state.swept_to) / static_cast<double>(state.highest);
  }
  return progress;
}

}  // namespace Corvan::search
