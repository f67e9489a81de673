// The FTS5 expression of a query.

#ifndef ADDONS_SEARCH_MATCH_EXPRESSION_H_
#define ADDONS_SEARCH_MATCH_EXPRESSION_H_

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "addons/search/term.h"

namespace Corvan::search {

// Collects tokens that each text with the terms has in the index, or beginnings of such tokens.
class MatchExpression {
 public:
  using Token = Wanted;

  void add(const Term& term);

  // Whether a term consists of several words.
  bool has_phrase() const { return has_phrase_; }

  // Tokens of the words that follow each other in the terms, as of pair_token(); the first ones if
  // there are many. The last word of a prefix is not among them.
  const std::vector<Token>& pairs() const { return pairs_; }

  // All tokens; the most useful ones if there are many. Empty if no term was added.
  std::vector<Token> tokens() const;

  // An FTS5 expression for a table with the tokenizer kTokenizer: the token, or all tokens, joined
  // by AND.
  static std::string text(const Token& token);
  static std::string text(const std::vector<Token>& tokens);

  // SQL that asks such a table for the matches of an expression among some ids.
  static std::string query(const char* result, const std::string& table);

 private:
  void add_word(std::string_view word, bool is_prefix);
  void add_unspaced(std::string_view chunk);
  bool is_covered(const std::string& prefix) const;

  bool has_phrase_ = false;
  std::vector<Token> pairs_;
  std::set<std::string> tokens_;
  std::set<std::string> prefixes_;
  std::set<std::string> paired_;  // unspaced characters of tokens_
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_MATCH_EXPRESSION_H_
