#include "addons/search/candidates.h"

#include <algorithm>
#include <limits>

namespace Corvan::search {

namespace {

// Reading the candidates of a block takes as long as looking at this many messages.
constexpr int kBlockBits = 12;
constexpr int kQuestions = 16;
// For a prefix, FTS5 merges the lists of all its terms each time, for the whole table.
constexpr int kPrefixQuestions = 512;

}  // namespace

Candidates::Candidates(const Connection* index, const Query& query) : index_(index), query_(query) {
  if (index == nullptr) return;
  state_ = read_state(*index);
  shards_ = read_shards(*index);
}

const Shard* Candidates::shard_of(int64_t id) const {
  const auto after =
      std::upper_bound(shards_.begin(), shards_.end(), id,
                       [](int64_t value, const Shard& shard) { return value < shard.first_id; });
  return after == shards_.begin() ? nullptr : &*std::prev(after);
}

int64_t Candidates::end_of(std::size_t shard) const {
  if (shard + 1 == shards_.size()) return std::numeric_limits<int64_t>::max();
  return shards_[shard + 1].first_id - 1;
}

int64_t Candidates::block_of(int64_t id) const {
  if (!query_.has_prefix()) return id >> kBlockBits;
  const Shard* const shard = shard_of(id);
  return shard == nullptr ? 0 : shard->first_id;
}

// The next question is usually about the same block.
Candidates::Block& Candidates::block(int64_t number) {
  if (last_block_ == nullptr || number != last_number_) {
    last_block_ = &blocks_[number];
    last_number_ = number;
  }
  return *last_block_;
}

bool Candidates::may_match(int64_t id) {
  if (id < 1 || id > state_.highest) return true;
  const int64_t number = block_of(id);
  Block& block = this->block(number);
  if (!block.is_loaded) {
    if (++block.questions <= (query_.has_prefix() ? kPrefixQuestions : kQuestions)) return true;
    load(number, &block);
  }
  return std::binary_search(block.ids.begin(), block.ids.end(), id);
}

void Candidates::load(int64_t block, Block* result) {
  int64_t begin = block;
  int64_t end = block;
  if (query_.has_prefix()) {
    end = end_of(static_cast<std::size_t>(shard_of(block) - shards_.data()));
  } else {
    begin = block << kBlockBits;
    end = begin + (int64_t{1} << kBlockBits) - 1;
  }
  for (std::size_t i = 0; i < shards_.size(); ++i) {
    if (shards_[i].first_id > end || end_of(i) < begin) continue;
    load_part(i, begin, end, &result->ids);
  }
  result->is_loaded = true;
}

void Candidates::load_part(std::size_t shard, int64_t begin, int64_t end,
                           std::vector<int64_t>* ids) {
  Statement& rows = statement(shards_[shard].number);
  rows.bind(std::string_view(query_.match()), begin, std::min(end, end_of(shard)));
  while (rows.row()) ids->push_back(rows.integer(0));
}

std::optional<std::vector<int64_t>> Candidates::all(std::size_t limit, const TimeBudget& budget) {
  std::vector<int64_t> ids;
  for (std::size_t i = shards_.size(); i-- > 0;) {
    if (budget.is_over()) return std::nullopt;
    Statement& rows = statement(shards_[i].number);
    rows.bind(std::string_view(query_.match()), std::max<int64_t>(shards_[i].first_id, 1),
              std::min(end_of(i), state_.highest));
    while (rows.row()) {
      ids.push_back(rows.integer(0));
      if (ids.size() <= limit) continue;
      rows.reset();
      return std::nullopt;
    }
  }
  return ids;
}

Statement& Candidates::statement(int64_t number) {
  std::unique_ptr<Statement>& statement = statements_[number];
  if (statement == nullptr) {
    const std::string table = shard_table(number);
    statement =
        std::make_unique<Statement>(*index_, "select rowid from " + table + " where " + table +
                                                 " match ? and rowid between ? and ?");
  }
  return *statement;
}

}  // namespace Corvan::search
