// A query, and whether a text matches it.

#ifndef ADDONS_SEARCH_QUERY_H_
#define ADDONS_SEARCH_QUERY_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addons/search/message_search.h"
#include "addons/search/term.h"
#include "addons/search/term_table.h"

namespace Corvan::search {

class Query {
 public:
  explicit Query(std::string_view text);

  // Whether nothing is left to search for.
  bool is_empty() const { return terms_.empty(); }

  // Whether the index must look up all terms with a given beginning, which takes longer.
  bool has_prefix() const { return has_prefix_; }

  // An FTS5 expression for a table with the tokenizer kTokenizer. Each text that matches the query
  // also matches the expression.
  const std::string& match() const { return match_; }

  bool matches(std::string_view text) const;

  // As MessageSearch::snippet().
  std::vector<SearchRange> ranges(std::string_view text) const;

 private:
  std::vector<Term::Place> places(std::string_view folded) const;

  std::vector<Term> terms_;         // without duplicates, long ones first
  std::optional<TermTable> table_;  // if there are many terms
  std::string match_;
  bool has_prefix_ = false;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_QUERY_H_
