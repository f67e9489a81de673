// Pairs of common words, which the index has as tokens of their own.

#ifndef ADDONS_SEARCH_COMMON_PAIRS_H_
#define ADDONS_SEARCH_COMMON_PAIRS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "addons/search/folded_text.h"

namespace Corvan::search {

// Two common words are together in many messages, but often follow each other in few. The index has
// no positions, so a search for the phrase would look at all these messages. Therefore such pairs
// are tokens, too. A pair that is itself common in the messages with both words is none: there, a
// page is soon full.
class CommonPairs {
 public:
  CommonPairs() = default;                                                          // no pairs
  CommonPairs(int64_t least, std::string_view words, std::string_view exceptions);  // of PairLists

  // A word, as far as it matters here.
  struct Word {
    uint64_t hash = 0;
    int64_t share = 0;  // 0: it is not common
  };
  Word word(std::string_view word) const;

  // Whether two words that follow each other have a token.
  bool has(const Word& first, const Word& second) const;
  bool has(std::string_view first, std::string_view second) const {
    return has(word(first), word(second));
  }
  bool is_empty() const { return words_.empty(); }

 private:
  void add_word(const Word& word);
  std::size_t place_of(uint64_t hash) const { return hash & (words_.size() - 1); }

  int64_t least_ = 0;
  // Hashes are compared instead of words. If two words have the same hash, the index has a few
  // tokens more.
  std::vector<Word> words_;  // a hash table: 2^n places, some of them free
  std::unordered_set<uint64_t> exceptions_;
};

// What CommonPairs are made of, to be stored.
struct PairLists {
  // Two words are a pair if of 65,536 messages so many would have both by chance.
  int64_t least = 0;
  // A line for each common word: the word, a space, and how many of 65,536 messages have it.
  std::string words;
  // A line for each pair of such words that has no token.
  std::string exceptions;
};

// Finds the lists for a store with so many messages in a sample of texts of FoldedTexts. They are
// empty if the sample is small.
PairLists count_pairs(const std::vector<std::string>& folded, int64_t messages);

// The token of a pair.
std::string pair_token(std::string_view first, std::string_view second);

// Calls take(first, second) for each two words of the text that follow each other, until one call
// returns false.
template <typename Take>
bool for_each_pair(std::string_view folded, Take take) {
  std::string_view last;
  for (std::size_t at = 0;;) {
    const std::string_view chunk = next_chunk(folded, at);
    if (chunk.empty()) return true;
    const bool word = is_word(chunk);
    if (word && !last.empty() && !take(last, chunk)) return false;
    last = word ? chunk : std::string_view();
  }
}

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_COMMON_PAIRS_H_
