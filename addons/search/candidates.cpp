#include "addons/search/candidates.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "addons/search/selective_tokens.h"

namespace Corvan::search {

namespace {

// Looking at so many messages takes as long as reading the candidates among kSmallest ids, or, for
// a prefix, those of a shard.
constexpr int kQuestions = 16;
constexpr int kPrefixQuestions = 512;

constexpr int64_t kSmallest = 1024;     // ids in the first range that is read
constexpr int64_t kEstimated = 8192;    // newest ids by which the number of candidates is estimated
constexpr int64_t kLeastSample = 1024;  // messages that a shard must have for estimates
constexpr int kDoublings = 6;           // the next ranges are larger, as the query is rarer
constexpr int64_t kWanted = 256;        // candidates in a range: a larger one has too many

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

// Whether the word is between two gaps of the text.
bool has_word(const std::string& text, const std::string& word) {
  std::string between_gaps(1, FoldedText::kGap);
  between_gaps += word;
  between_gaps += FoldedText::kGap;
  return text.find(between_gaps) != std::string::npos;
}

bool has(const CommonPairs& pairs, const std::string& pair) {
  const std::string_view words = pair;
  const std::size_t gap = words.find(FoldedText::kGap);
  return pairs.has(pairs.word(words.substr(0, gap)), pairs.word(words.substr(gap + 1)));
}

}  // namespace

Candidates::Candidates(const Connection* index, PairTable* pairs, const Query& query)
    : index_(index), pairs_(pairs), query_(query), last_(ranges_.end()) {
  if (index == nullptr) return;
  Statement state(*index, kStateQuery);
  state_ = read_state(&state);
  Statement shards(*index, kShardQuery);
  shards_ = read_shards(&shards);
  if (shards_.empty() && state_.highest > 0) index->fail(SQLITE_CORRUPT);
  for (std::size_t i = 0; i < shards_.size(); ++i) {
    has_prefix_ = has_prefix_ || match_of(i).has_prefix;
  }
}

// Shards that have tokens for the same pairs are asked for the same tokens.
const Candidates::Match& Candidates::match_of(std::size_t shard) {
  uint64_t pairs = 0;
  for (std::size_t i = 0; i < query_.pairs().size(); ++i) {
    const bool has_token = has(pairs_->of(shards_[shard].number), query_.pairs()[i].text);
    pairs |= static_cast<uint64_t>(has_token) << i;
  }
  for (const Match& match : matches_) {
    if (match.pairs == pairs) return match;
  }
  matches_.push_back(choose_match(shard, pairs));
  return matches_.back();
}

Candidates::Match Candidates::choose_match(std::size_t shard, uint64_t pairs) const {
  const Shard& sampled = shards_[shard];
  const int64_t last = std::min(end_of(shard), state_.highest);
  const auto tokens = selective_tokens(
      *index_, {shard_table(sampled.number), sampled.first_id, last}, tokens_with(pairs));
  return {pairs, MatchExpression::text(tokens), tokens.back().is_prefix};
}

// The query's tokens, with those of these pairs instead of those of their words.
std::vector<MatchExpression::Token> Candidates::tokens_with(uint64_t pairs) const {
  std::vector<MatchExpression::Token> tokens;
  std::string words(1, FoldedText::kGap);  // of the pairs, between gaps
  for (std::size_t i = 0; pairs >> i != 0; ++i) {
    if ((pairs >> i & 1U) == 0) continue;
    tokens.push_back(query_.pairs()[i]);
    words += tokens.back().text;
    words += FoldedText::kGap;
  }
  for (const MatchExpression::Token& token : query_.tokens()) {
    if (token.is_prefix || !has_word(words, token.text)) tokens.push_back(token);
  }
  return tokens;
}

// The newest shard, unless it has few messages yet.
std::size_t Candidates::sampled_shard() const {
  const std::size_t newest = shards_.size() - 1;
  return newest > 0 && shards_[newest].messages < kLeastSample ? newest - 1 : newest;
}

bool Candidates::may_match(int64_t id) {
  if (id < 1 || id > state_.highest) return true;
  const Range* range = range_of(id);
  if (range == nullptr) {
    if (++questions_ <= (has_prefix_ ? kPrefixQuestions : kQuestions)) return true;
    questions_ = 0;
    range = read_around(id);
  }
  return std::binary_search(range->ids.begin(), range->ids.end(), id);
}

// The next question is usually about the same range.
const Candidates::Range* Candidates::range_of(int64_t id) {
  if (last_ == ranges_.end() || id < last_->first || id > last_->second.end) {
    last_ = ranges_.upper_bound(id);
    if (last_ == ranges_.begin()) {
      last_ = ranges_.end();
      return nullptr;
    }
    --last_;
  }
  return id <= last_->second.end ? &last_->second : nullptr;
}

// Reads ids around this one, up to the ranges that were read already.
const Candidates::Range* Candidates::read_around(int64_t id) {
  const std::size_t shard = shard_of(id);
  int64_t begin = shards_[shard].first_id;
  int64_t end = end_of(shard);
  if (!has_prefix_) {
    const int64_t size = next_size();
    begin = std::max(begin, id - id % size);
    end = std::min(end, id - id % size + size - 1);
  }
  const auto after = ranges_.upper_bound(id);
  if (after != ranges_.end()) end = std::min(end, after->first - 1);
  if (after != ranges_.begin()) begin = std::max(begin, std::prev(after)->second.end + 1);
  const Range* range = read(shard, begin, end, kNoLimit);
  if (static_cast<int64_t>(range->ids.size()) < kWanted) ++doublings_;
  return range;
}

bool Candidates::add_between(int64_t first, int64_t last, std::size_t limit,
                             std::vector<int64_t>* ids) {
  if (first > last) return true;
  if (first < 1 || last > state_.highest) return false;
  for (int64_t id = last; id >= first; id = last_->first - 1) {
    if (range_of(id) == nullptr) read_around(id);
    const std::vector<int64_t>& range = range_of(id)->ids;
    const auto begin = std::lower_bound(range.begin(), range.end(), first);
    const auto end = std::upper_bound(begin, range.end(), id);  // ranges may overlap
    if (static_cast<std::size_t>(end - begin) > limit - ids->size()) return false;
    ids->insert(ids->end(), begin, end);
  }
  return true;
}

// How many ids are read next: among them are enough candidates for some pages, as estimated.
int64_t Candidates::next_size() {
  if (!estimate_) return kSmallest << std::min(doublings_, kDoublings);
  const auto candidates = static_cast<int64_t>(std::max<std::size_t>(*estimate_, 1));
  return std::max(kEstimated, kWanted * messages() / candidates);
}

int64_t Candidates::messages() const {
  int64_t result = 0;
  for (const Shard& shard : shards_) result += shard.messages;
  return result;
}

std::size_t Candidates::estimate() {
  if (!estimate_) estimate_ = estimated();
  return *estimate_;
}

std::size_t Candidates::estimated() {
  if (shards_.empty()) return 0;
  const std::size_t shard = sampled_shard();
  const int64_t last = std::min(end_of(shard), state_.highest);
  const int64_t first = shards_[shard].first_id;
  const int64_t begin = has_prefix_ ? first : std::max(first, last - kEstimated + 1);
  const std::size_t found = read(shard, begin, end_of(shard), kNoLimit)->ids.size();
  const int64_t looked_at =
      std::max<int64_t>(1, std::min(shards_[shard].messages, last - begin + 1));
  return static_cast<std::size_t>(static_cast<int64_t>(found) * messages() / looked_at);
}

// Makes each shard one range. That of a prefix is read to its end, because reading less of it does
// not take less time.
bool Candidates::add_all(std::size_t limit, const TimeBudget& budget, std::vector<int64_t>* ids) {
  limit += ids->size();
  for (std::size_t shard = shards_.size(); shard-- > 0;) {
    const std::size_t rest = limit - ids->size();
    const int64_t begin = shards_[shard].first_id;
    if (budget.is_over()) return false;
    const Range* range = read(shard, begin, end_of(shard), has_prefix_ ? kNoLimit : rest);
    if (range == nullptr || range->ids.size() > rest) return false;
    ids->insert(ids->end(), range->ids.begin(), range->ids.end());
  }
  return true;
}

// Makes these ids one range. Null if it has more than `limit` candidates.
const Candidates::Range* Candidates::read(std::size_t shard, int64_t begin, int64_t end,
                                          std::size_t limit) {
  Range range;
  range.end = end;
  Statement& rows = statement(shard);
  rows.bind(std::string_view(match_of(shard).text), begin, std::min(end, state_.highest));
  while (rows.row()) {
    if (range.ids.size() == limit) {
      rows.reset();
      return nullptr;
    }
    range.ids.push_back(rows.integer(0));
  }
  ranges_.erase(ranges_.lower_bound(begin), ranges_.upper_bound(end));
  last_ = ranges_.emplace(begin, std::move(range)).first;
  return &last_->second;
}

std::size_t Candidates::shard_of(int64_t id) const {
  const auto after =
      std::upper_bound(shards_.begin(), shards_.end(), id,
                       [](int64_t value, const Shard& shard) { return value < shard.first_id; });
  if (after == shards_.begin()) index_->fail(SQLITE_CORRUPT);
  return static_cast<std::size_t>(after - shards_.begin()) - 1;
}

int64_t Candidates::end_of(std::size_t shard) const {
  if (shard + 1 == shards_.size()) return std::numeric_limits<int64_t>::max();
  return shards_[shard + 1].first_id - 1;
}

Statement& Candidates::statement(std::size_t shard) {
  statements_.resize(shards_.size());
  std::unique_ptr<Statement>& statement = statements_[shard];
  if (statement == nullptr) {
    statement = std::make_unique<Statement>(
        *index_, MatchExpression::query("rowid", shard_table(shards_[shard].number)));
  }
  return *statement;
}

}  // namespace Corvan::search
