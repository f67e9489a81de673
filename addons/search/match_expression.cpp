#include "addons/search/match_expression.h"

#include <string_view>

#include "addons/search/common_pairs.h"
#include "addons/search/folded_text.h"
#include "addons/search/tokens.h"

namespace Corvan::search {

namespace {

constexpr std::size_t kMostTokens = 32;
constexpr std::size_t kMostPairs = 32;

bool starts_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

void MatchExpression::add(const Term& term) {
  const std::string_view folded = term.folded();
  std::size_t at = 0;
  int words = 0;
  std::string_view before;  // the word before the chunk
  for (std::string_view chunk = next_chunk(folded, at); !chunk.empty();) {
    const std::string_view next = next_chunk(folded, at);
    const bool is_prefix = term.is_prefix() && next.empty();
    if (is_word(chunk)) {
      has_phrase_ = has_phrase_ || ++words > 1;
      add_word(chunk, is_prefix);
      if (!before.empty() && !is_prefix && pairs_.size() < kMostPairs) {
        const Token pair{pair_token(before, chunk), false};
        pairs_.push_back(pair);
      }
      before = chunk;
    } else {
      add_unspaced(chunk);
      before = {};
    }
    chunk = next;
  }
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

std::vector<MatchExpression::Token> MatchExpression::tokens() const {
  std::set<Token> all;
  for (const std::string& token : tokens_) all.insert({token, false});
  for (const std::string& prefix : prefixes_) {
    if (!is_covered(prefix)) all.insert({prefix, true});
  }
  std::vector<Token> first;
  for (auto token = all.begin(); token != all.end() && first.size() < kMostTokens; ++token) {
    first.push_back(*token);
  }
  return first;
}

std::string MatchExpression::text(const Token& token) {
  std::string text(1, '"');
  text += token.text;
  text += token.is_prefix ? "\" *" : "\"";
  return text;
}

std::string MatchExpression::text(const std::vector<Token>& tokens) {
  std::string all;
  for (const Token& token : tokens) {
    if (!all.empty()) all += " AND ";
    all += text(token);
  }
  return all;
}

std::string MatchExpression::query(const char* result, const std::string& table) {
  std::string sql = "select ";
  sql += result;
  sql.append(" from ").append(table).append(" where ").append(table);
  return sql += " match ? and rowid between ? and ?";
}

}  // namespace Corvan::search
