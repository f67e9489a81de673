#include "addons/search/selective_tokens.h"

#include <algorithm>
#include <utility>

namespace Corvan::search {

namespace {

using Token = MatchExpression::Token;

constexpr int64_t kSample = 1024;          // ids in which tokens are counted
constexpr std::size_t kSampled = 6;        // tokens; the others are not needed
constexpr int64_t kCommon = kSample / 10;  // hits in the sample; of 10 messages with the rare
                                           // tokens, about one will also have this one
constexpr int64_t kUsefulRatio = 4;        // a common token of not many more hits is still useful

}  // namespace

std::vector<Token> selective_tokens(const Connection& index, const std::string& table,
                                    int64_t newest_id, const std::vector<Token>& tokens) {
  if (tokens.size() < 2 || tokens[0].is_prefix) return tokens;
  Statement count(index, "select count(*) from " + table + " where " + table +
                             " match ? and rowid between ? and ?");
  std::vector<std::pair<int64_t, Token>> counted;
  for (const Token& token : tokens) {
    if (token.is_prefix || counted.size() == kSampled) break;
    const std::string match = MatchExpression::text({token});
    count.bind(std::string_view(match), newest_id - kSample, newest_id).row();
    counted.emplace_back(count.integer(0), token);
  }
  const auto rarest =
      std::min_element(counted.begin(), counted.end(),
                       [](const auto& a, const auto& b) { return a.first < b.first; });
  const int64_t most = std::max(kCommon, rarest->first * kUsefulRatio);
  std::vector<Token> result;
  for (auto& [hits, token] : counted) {
    if (hits <= most) result.push_back(std::move(token));
  }
  if (tokens.back().is_prefix && rarest->first > 0) result.push_back(tokens.back());
  return result;
}

}  // namespace Corvan::search
