#include "addons/search/common_pairs.h"

#include <algorithm>
#include <map>

#include "addons/search/hashing.h"

namespace Corvan::search {

namespace {

constexpr int64_t kWhole = 65'536;  // shares are parts of so many
// Two words are a pair if so many messages, and so large a part of all, would have both by chance.
constexpr int64_t kLeastMessages = 200;
constexpr int64_t kLeastShare = kWhole / 1000;
// A pair is an exception if at least one in kFrequent of these messages has it, and at least
// kFrequentInSample messages of the sample.
constexpr int64_t kFrequent = 5;
constexpr int64_t kFrequentInSample = 3;
constexpr int64_t kLeastTexts = 128;

// The share of the messages that have two words with these shares, by chance.
int64_t joint_share(int64_t first, int64_t second) {
  return first * second / kWhole;
}

// Depends on the order of the words.
uint64_t pair_hash(uint64_t first, uint64_t second) {
  return mixed(mixed(first, 0), second);
}

// How many texts have a word or a pair.
struct Count {
  int64_t texts = 0;
  const std::string* last = nullptr;  // the last of them
  int64_t by_chance = 0;              // the share of the messages that have a pair by chance

  void add(const std::string& text) {
    if (last != &text) ++texts;
    last = &text;
  }
};

using Counts = std::map<uint64_t, Count>;  // by hash

Counts count_words(const std::vector<std::string>& folded) {
  Counts counts;
  for (const std::string& text : folded) {
    for (std::size_t at = 0;;) {
      const std::string_view chunk = next_chunk(text, at);
      if (chunk.empty()) break;
      if (is_word(chunk)) counts[hash_of(chunk)].add(text);
    }
  }
  return counts;
}

// The words that are common together with the most common one.
std::vector<HashedShare> common_words(const std::vector<std::string>& folded, int64_t least) {
  const Counts counts = count_words(folded);
  const auto texts = static_cast<int64_t>(folded.size());
  int64_t largest = 0;
  for (const auto& [word, count] : counts) largest = std::max(largest, count.texts);
  std::vector<HashedShare> common;
  for (const auto& [word, count] : counts) {
    const int64_t share = count.texts * kWhole / texts;
    if (joint_share(share, largest * kWhole / texts) >= least) common.push_back({word, share});
  }
  return common;
}

Counts count_neighbours(const std::vector<std::string>& folded, const CommonPairs& all_pairs) {
  Counts counts;
  for (const std::string& text : folded) {
    for_each_pair(text, [&](std::string_view first, std::string_view second) {
      const HashedShare a = all_pairs.word(first);
      const HashedShare b = all_pairs.word(second);
      if (!all_pairs.has(a, b)) return;
      Count& count = counts[pair_hash(a.hash, b.hash)];
      count.by_chance = joint_share(a.share, b.share);
      count.add(text);
    });
  }
  return counts;
}

}  // namespace

PairLists count_pairs(const std::vector<std::string>& folded, int64_t messages) {
  PairLists lists;
  const auto texts = static_cast<int64_t>(folded.size());
  if (texts < kLeastTexts || messages < kLeastTexts) return lists;
  lists.least = std::max(kLeastShare, kLeastMessages * kWhole / messages);
  lists.words = common_words(folded, lists.least);
  for (const auto& [pair, count] : count_neighbours(folded, CommonPairs(lists))) {
    if (count.texts < kFrequentInSample) continue;
    if (count.texts * kWhole * kFrequent < count.by_chance * texts) continue;
    lists.exceptions.push_back(pair);
  }
  return lists;
}

CommonPairs::CommonPairs(const PairLists& lists)
    : least_(lists.least), exceptions_(lists.exceptions) {
  if (lists.words.empty()) return;
  std::size_t places = 2;
  while (places < 2 * lists.words.size()) places *= 2;
  words_.resize(places);
  for (const HashedShare& word : lists.words) {
    if (word.share < 1 || word.share > kWhole) continue;
    std::size_t place = place_of(word.hash);
    while (words_[place].share != 0) place = place_of(place + 1);
    words_[place] = word;
  }
}

HashedShare CommonPairs::word(std::string_view word) const {
  const uint64_t hash = hash_of(word);
  if (is_empty()) return {hash, 0};
  for (std::size_t place = place_of(hash);; place = place_of(place + 1)) {
    const HashedShare& known = words_[place];
    if (known.share == 0 || known.hash == hash) return {hash, known.share};
  }
}

bool CommonPairs::has(const HashedShare& first, const HashedShare& second) const {
  if (is_empty() || joint_share(first.share, second.share) < least_) return false;
  return !std::binary_search(exceptions_.begin(), exceptions_.end(),
                             pair_hash(first.hash, second.hash));
}

std::string pair_token(std::string_view first, std::string_view second) {
  std::string token(first);
  token += FoldedText::kGap;
  token += second;
  return token;
}

}  // namespace Corvan::search
