// Which tokens of a query the index is asked for.

#ifndef ADDONS_SEARCH_SELECTIVE_TOKENS_H_
#define ADDONS_SEARCH_SELECTIVE_TOKENS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/match_expression.h"

namespace Corvan::search {

// Ids of a table, among the newest of which tokens are counted.
struct SampledIds {
  std::string table;
  int64_t first = 0;
  int64_t last = 0;
};

// The tokens without those that are too common to be useful.
std::vector<MatchExpression::Token> selective_tokens(
    const Connection& index, const SampledIds& ids,
    const std::vector<MatchExpression::Token>& tokens);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_SELECTIVE_TOKENS_H_
