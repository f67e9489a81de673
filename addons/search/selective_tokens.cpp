#include "addons/search/selective_tokens.h"

#include <algorithm>
#include <utility>

namespace Corvan::search {

namespace {

using Token = MatchExpression::Token;

constexpr int64_t kSample = 1024;    // ids in which tokens are counted
constexpr std::size_t kSampled = 6;  // tokens; the others are not needed

// FTS5 reads the list of a common token to its end. Without the token, more messages are looked at.
// Each of `share` messages that have the other tokens is looked at; `common` of all messages have
// this one. The factor is the cost of looking at a message, in ids of a list that are read.
bool is_too_common(double common, double share) {
  constexpr double kFactor = 200;
  return common > kFactor * share * (1 - common);
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
                                    int64_t newest_id, const std::vector<Token>& tokens) {
  if (tokens.size() < 2 || tokens[0].is_prefix) return tokens;
  Counted all = counted(index, table, newest_id, tokens);
  std::stable_sort(all.begin(), all.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Token> result;
  double share = 1;  // of all messages have the tokens of the result
  for (auto& [hits, token] : all) {
    const double common = static_cast<double>(hits) / kSample;
    if (!result.empty() && is_too_common(common, share)) break;
    result.push_back(std::move(token));
    share *= std::max(common, 1.0 / kSample);
  }
  if (tokens.back().is_prefix && all.front().first > 0) result.push_back(tokens.back());
  return result;
}

}  // namespace Corvan::search
