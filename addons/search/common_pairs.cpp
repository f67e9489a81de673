#include "addons/search/common_pairs.h"

#include <algorithm>

#include "addons/search/hashing.h"

namespace Corvan::search {

namespace {

constexpr int64_t kWhole = 65'536;  // shares are counted in messages of so many
// Two words are a pair if so many messages, and so large a part of all, would have both by chance.
constexpr int64_t kLeastMessages = 200;
constexpr int64_t kLeastShare = kWhole / 1000;
// A pair is an exception if at least one of so many of these messages has it,
constexpr int64_t kFrequent = 5;
constexpr int64_t kFrequentInSample = 3;  // and at least so many messages of the sample
constexpr int64_t kLeastTexts = 128;

using Shares = std::vector<HashedShare>;

// The share of the messages that have two words with these shares, by chance.
int64_t joint_share(int64_t first, int64_t second) {
  return first * second / kWhole;
}

// Depends on the order of the words.
uint64_t pair_hash(uint64_t first, uint64_t second) {
  return mixed(mixed(first, 0), second);
}

bool has_smaller_hash(const HashedShare& a, const HashedShare& b) {
  return a.hash < b.hash;
}

bool has_same_hash(const HashedShare& a, const HashedShare& b) {
  return a.hash == b.hash;
}

void sort(Shares* list, std::size_t from) {
  std::sort(list->begin() + static_cast<std::ptrdiff_t>(from), list->end(), has_smaller_hash);
}

// Each only once from `from` on: what a text has.
void remove_repetitions(Shares* list, std::size_t from) {
  sort(list, from);
  const auto begin = list->begin() + static_cast<std::ptrdiff_t>(from);
  list->erase(std::unique(begin, list->end(), has_same_hash), list->end());
}

// Calls take(element, count) for each different element.
template <typename Take>
void for_each_counted(Shares list, Take take) {
  sort(&list, 0);
  for (std::size_t i = 0, next = 0; i < list.size(); i = next) {
    while (next < list.size() && list[next].hash == list[i].hash) ++next;
    take(list[i], static_cast<int64_t>(next - i));
  }
}

// The words that are common together with the most common one.
Shares common_words(const std::vector<std::string>& folded, int64_t least) {
  Shares all;
  for (const std::string& text : folded) {
    const std::size_t before = all.size();
    for (std::size_t at = 0;;) {
      const std::string_view chunk = next_chunk(text, at);
      if (chunk.empty()) break;
      if (is_word(chunk)) all.push_back({hash_of(chunk), 0});
    }
    remove_repetitions(&all, before);
  }
  const auto texts = static_cast<int64_t>(folded.size());
  int64_t largest = 0;
  for_each_counted(all, [&](const HashedShare& /*word*/, int64_t count) {
    largest = std::max(largest, count * kWhole / texts);
  });
  Shares common;
  for_each_counted(all, [&](const HashedShare& word, int64_t count) {
    const int64_t share = count * kWhole / texts;
    if (joint_share(share, largest) >= least) common.push_back({word.hash, share});
  });
  return common;
}

// The pairs that the texts have, each once for each text, with the shares by chance.
Shares pairs_of_texts(const std::vector<std::string>& folded, const CommonPairs& all_pairs) {
  Shares pairs;
  for (const std::string& text : folded) {
    const std::size_t before = pairs.size();
    for_each_pair(text, [&](std::string_view first, std::string_view second) {
      const HashedShare a = all_pairs.word(first);
      const HashedShare b = all_pairs.word(second);
      if (!all_pairs.has(a, b)) return;
      pairs.push_back({pair_hash(a.hash, b.hash), joint_share(a.share, b.share)});
    });
    remove_repetitions(&pairs, before);
  }
  return pairs;
}

}  // namespace

PairLists count_pairs(const std::vector<std::string>& folded, int64_t messages) {
  PairLists lists;
  const auto texts = static_cast<int64_t>(folded.size());
  if (texts < kLeastTexts || messages < kLeastTexts) return lists;
  lists.least = std::max(kLeastShare, kLeastMessages * kWhole / messages);
  lists.words = common_words(folded, lists.least);
  for_each_counted(pairs_of_texts(folded, CommonPairs(lists)),
                   [&](const HashedShare& pair, int64_t count) {
                     if (count < kFrequentInSample) return;
                     if (count * kWhole * kFrequent < pair.share * texts) return;
                     lists.exceptions.push_back(pair.hash);
                   });
  return lists;
}

CommonPairs::CommonPairs(const PairLists& lists)
    : least_(lists.least), exceptions_(lists.exceptions) {
  if (lists.words.empty()) return;
  std::size_t places = 2;
  while (places < 2 * lists.words.size()) places *= 2;
  words_.resize(places);
  for (const HashedShare& word : lists.words) {
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
