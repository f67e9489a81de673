// Which tokens of a query the index is asked for.

#ifndef ADDONS_SEARCH_SELECTIVE_TOKENS_H_
#define ADDONS_SEARCH_SELECTIVE_TOKENS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/match_expression.h"

namespace Corvan::search {

// The rare ones of these tokens, in messages of `table` up to `newest_id`. Reading the long list of
// a common word takes longer than looking at the messages that only have the rare ones.
std::vector<MatchExpression::Token> selective_tokens(
    const Connection& index, const std::string& table, int64_t newest_id,
    const std::vector<MatchExpression::Token>& tokens);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_SELECTIVE_TOKENS_H_
