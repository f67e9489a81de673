// A query, and whether a text matches it.

#ifndef ADDONS_SEARCH_QUERY_H_
#define ADDONS_SEARCH_QUERY_H_

#include <optional>
#include <string_view>
#include <vector>

#include "addons/search/match_expression.h"
#include "addons/search/message_search.h"
#include "addons/search/term.h"
#include "addons/search/term_table.h"

namespace Corvan::search {

class Query {
 public:
  explicit Query(std::string_view text);

  // Whether nothing is left to search for.
  bool is_empty() const { return terms_.empty(); }

  // Whether a term consists of several words. Messages that have all of them often have them apart.
  bool has_phrase() const { return expression_.has_phrase(); }

  // What the index has for each text that matches.
  const std::vector<MatchExpression::Token>& tokens() const { return tokens_; }

  // Tokens of the words that follow each other in each text that matches, as of pair_token().
  const std::vector<MatchExpression::Token>& pairs() const { return expression_.pairs(); }

  bool matches(std::string_view text) const;

  // As MessageSearch::snippet().
  std::vector<SearchRange> ranges(std::string_view text) const;

 private:
  std::vector<Term::Place> places(std::string_view folded) const;

  std::vector<Term> terms_;         // without duplicates, in the order of Wanted
  std::optional<TermTable> table_;  // if there are many terms
  MatchExpression expression_;
  std::vector<MatchExpression::Token> tokens_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_QUERY_H_
