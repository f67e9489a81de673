#include "addons/search/match_expression.h"

#include <algorithm>
#include <string_view>

#include "addons/search/common_pairs.h"
#include "addons/search/folded_text.h"
#include "addons/search/tokens.h"

namespace Corvan::search {

namespace {

constexpr std::size_t kMostTokens = 32;

bool starts_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

void MatchExpression::add(const Term& term) {
  const std::string_view folded = term.folded();
  add_pairs(term);
  std::size_t at = 0;
  int words = 0;
  for (std::string_view chunk = next_chunk(folded, at); !chunk.empty();) {
    const std::string_view next = next_chunk(folded, at);
    if (is_word(chunk)) {
      has_phrase_ = has_phrase_ || ++words > 1;
      add_word(chunk, term.is_prefix() && next.empty());
    } else {
      add_unspaced(chunk);
    }
    chunk = next;
  }
}

void MatchExpression::add_pairs(const Term& term) {
  const std::size_t others = pairs_.size();
  bool ends_with_word = false;
  std::size_t at = 0;
  for (auto chunk = next_chunk(term.folded(), at); !chunk.empty();) {
    ends_with_word = is_word(chunk);
    chunk = next_chunk(term.folded(), at);
  }
  for_each_pair(term.folded(), [this](std::string_view first, std::string_view second) {
    pairs_.push_back(pair_token(first, second));
  });
  if (term.is_prefix() && ends_with_word && pairs_.size() > others) pairs_.pop_back();
}

// A token that was cut is the same for all words with the beginning.
void MatchExpression::add_word(std::string_view word, bool is_prefix) {
  const std::string token(word_token(word));
  if (is_prefix && token.size() == word.size()) {
    prefixes_.insert(token);
  } else {
    tokens_.insert(token);
  }
}

// The last character's own token is not in texts where another character follows.
void MatchExpression::add_unspaced(std::string_view chunk) {
  const std::size_t first = first_size(chunk);
  if (first == chunk.size()) {
    prefixes_.emplace(chunk);
    return;
  }
  while (chunk.size() > first_size(chunk)) {
    const std::size_t one = first_size(chunk);
    const std::size_t two = first_size(chunk.substr(one));
    tokens_.emplace(chunk.substr(0, one + two));
    paired_.emplace(chunk.substr(0, one));
    paired_.emplace(chunk.substr(one, two));
    chunk.remove_prefix(one);
  }
}

// Whether each text that has the other tokens also has one with this beginning.
bool MatchExpression::is_covered(const std::string& prefix) const {
  if (paired_.count(prefix) > 0) return true;
  const auto token = tokens_.lower_bound(prefix);
  if (token != tokens_.end() && starts_with(*token, prefix)) return true;
  const auto longer = prefixes_.upper_bound(prefix);
  return longer != prefixes_.end() && starts_with(*longer, prefix);
}

// Whole tokens come first, and long ones: they are rare.
bool MatchExpression::Token::operator<(const Token& other) const {
  if (is_prefix != other.is_prefix) return other.is_prefix;
  if (text.size() != other.text.size()) return text.size() > other.text.size();
  return text < other.text;
}

std::vector<MatchExpression::Token> MatchExpression::tokens() const {
  std::vector<Token> all;
  for (const std::string& token : tokens_) all.push_back({token, false});
  for (const std::string& prefix : prefixes_) {
    if (!is_covered(prefix)) all.push_back({prefix, true});
  }
  std::sort(all.begin(), all.end());
  if (all.size() > kMostTokens) all.resize(kMostTokens);
  return all;
}

std::string MatchExpression::text(const std::vector<Token>& tokens) {
  std::string text;
  for (const Token& token : tokens) {
    if (!text.empty()) text += " AND ";
    text += '"' + token.text + '"';
    if (token.is_prefix) text += " *";
  }
  return text;
}

}  // namespace Corvan::search
