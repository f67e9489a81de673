#include "addons/search/selective_tokens.h"

#include <algorithm>
#include <utility>

namespace Corvan::search {

namespace {

using Token = MatchExpression::Token;

constexpr int64_t kSample = 1024;    // ids in which tokens are counted
constexpr std::size_t kSampled = 6;  // tokens; the others are not needed

// FTS5 reads the list of a common token, of length `common` * messages, to its end. Without the
// token, the search goes through the messages until, of those with the rarest token, enough have
// the common one by chance: their number grows with 1 / (common * rarest). The factor is the ratio
// of the two costs, as measured.
bool is_too_common(int64_t common, int64_t rarest, int64_t messages) {
  constexpr double kFactor = 66;
  const auto share = [](int64_t hits) { return static_cast<double>(hits) / kSample; };
  return share(common) * share(common) * share(std::max<int64_t>(rarest, 1)) *
             static_cast<double>(messages) >
         kFactor;
}

using Counted = std::vector<std::pair<int64_t, Token>>;  // hits

Counted counted(const Connection& index, const std::string& table, int64_t newest_id,
                const std::vector<Token>& tokens) {
  Statement count(index, "select count(*) from " + table + " where " + table +
                             " match ? and rowid between ? and ?");
  Counted result;
  for (const Token& token : tokens) {
    if (token.is_prefix || result.size() == kSampled) break;
    const std::string match = MatchExpression::text({token});
    count.bind(std::string_view(match), newest_id - kSample + 1, newest_id).row();
    result.emplace_back(count.integer(0), token);
  }
  return result;
}

}  // namespace

std::vector<Token> selective_tokens(const Connection& index, const std::string& table,
                                    int64_t newest_id, int64_t messages,
                                    const std::vector<Token>& tokens) {
  if (tokens.size() < 2 || tokens[0].is_prefix) return tokens;
  Counted all = counted(index, table, newest_id, tokens);
  const auto fewer = [](const auto& a, const auto& b) { return a.first < b.first; };
  const auto rarest = std::min_element(all.begin(), all.end(), fewer);
  std::vector<Token> result = {rarest->second};
  for (auto token = all.begin(); token != all.end(); ++token) {
    if (token == rarest || is_too_common(token->first, rarest->first, messages)) continue;
    result.push_back(std::move(token->second));
  }
  if (tokens.back().is_prefix && rarest->first > 0) result.push_back(tokens.back());
  return result;
}

}  // namespace Corvan::search
