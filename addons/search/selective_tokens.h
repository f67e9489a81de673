// Which tokens of a query the index is asked for.

#ifndef ADDONS_SEARCH_SELECTIVE_TOKENS_H_
#define ADDONS_SEARCH_SELECTIVE_TOKENS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/match_expression.h"

namespace Corvan::search {

// The tokens without those that are too common to be useful. They are counted in the newest
// messages of `table`, whose ids end with `newest_id`.
std::vector<MatchExpression::Token> selective_tokens(
    const Connection& index, const std::string& table, int64_t newest_id,
    const std::vector<MatchExpression::Token>& tokens);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_SELECTIVE_TOKENS_H_
