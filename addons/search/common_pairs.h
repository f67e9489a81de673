// Pairs of common words, which the index has as tokens of their own.

#ifndef ADDONS_SEARCH_COMMON_PAIRS_H_
#define ADDONS_SEARCH_COMMON_PAIRS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "addons/search/folded_text.h"

namespace Corvan::search {

// A word or a pair, and a share of the messages in 65,536ths.
struct HashedShare {
  uint64_t hash = 0;
  int64_t share = 0;
};

// What CommonPairs are made of, to be stored. There are hashes instead of words: if two words have
// the same hash, the index has a few tokens more.
struct PairLists {
  // Two words are a pair if at least this share of the messages would have both by chance.
  int64_t least = 0;
  std::vector<HashedShare> words;    // common words, and the share that has them
  std::vector<uint64_t> exceptions;  // pairs of such words that have no token
};

// Finds the lists for a store with so many messages in a sample of texts of FoldedTexts. They are
// empty if the sample is small.
PairLists count_pairs(const std::vector<std::string>& folded, int64_t messages);

// Two common words are together in many messages, but often follow each other in few. The index has
// no positions, so a search for the phrase would look at all these messages. Therefore such pairs
// are tokens, too (common grams). A pair that many of these messages have gets no token: a search
// for it fills its page soon.
class CommonPairs {
 public:
  explicit CommonPairs(const PairLists& lists);

  // The word's hash and share; the share is 0 if the word is not common.
  HashedShare word(std::string_view word) const;
  // Whether two words that follow each other have a token.
  bool has(const HashedShare& first, const HashedShare& second) const;
  bool is_empty() const { return words_.empty(); }

 private:
  std::size_t place_of(uint64_t hash) const { return hash & (words_.size() - 1); }

  const int64_t least_;
  std::vector<HashedShare> words_;          // a hash table: 2^n places, some of them free
  const std::vector<uint64_t> exceptions_;  // sorted
};

// The token of a pair.
std::string pair_token(std::string_view first, std::string_view second);

// Calls take(first, second) for each two words of the text that follow each other.
template <typename Take>
void for_each_pair(std::string_view folded, Take take) {
  std::string_view last;
  for (std::size_t at = 0;;) {
    const std::string_view chunk = next_chunk(folded, at);
    if (chunk.empty()) return;
    const bool word = is_word(chunk);
    if (word && !last.empty()) take(last, chunk);
    last = word ? chunk : std::string_view();
  }
}

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_COMMON_PAIRS_H_
