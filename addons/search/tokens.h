// The tokens of the index.

#ifndef ADDONS_SEARCH_TOKENS_H_
#define ADDONS_SEARCH_TOKENS_H_

#include <cstddef>
#include <string_view>

#include "addons/search/folded_text.h"

namespace Corvan::search {

constexpr std::size_t kMostTokenBytes = 64;  // longer words are cut

// The token of a word: its first bytes, at most kMostTokenBytes, in whole code points.
std::string_view word_token(std::string_view word);

// Calls take(token) for the tokens of the text of a FoldedText, until one call returns false. A
// word has one token. Unspaced characters have a token for each two that are adjacent, and one for
// the last of them.
template <typename Take>
bool for_each_token(std::string_view folded, Take take) {
  for (std::size_t at = 0;;) {
    std::string_view chunk = next_chunk(folded, at);
    if (chunk.empty()) return true;
    if (is_word(chunk)) {
      if (!take(word_token(chunk))) return false;
      continue;
    }
    std::size_t first = first_size(chunk);
    for (std::size_t second = 1; second > 0; first = second) {
      const std::string_view rest = chunk.substr(first);
      second = rest.empty() ? 0 : first_size(rest);
      if (!take(chunk.substr(0, first + second))) return false;
      chunk = rest;
    }
  }
}

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TOKENS_H_
