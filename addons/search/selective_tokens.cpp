#include "addons/search/selective_tokens.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace Corvan::search {

namespace {

using Token = MatchExpression::Token;

// FTS5 reads the list of a common token to its end. Without the token, more messages are looked at.
// `share` of all messages have the other tokens, and `common` have this one. The factor is the cost
// of looking at a message, in ids of a list that are read.
bool is_too_common(double common, double share) {
  constexpr double kFactor = 200;
  return common > kFactor * share * (1 - common);
}

// FTS5 merges the lists of all tokens with a beginning, for the whole table. How long they are is
// not known; for short beginnings they are long.
bool is_worthwhile(const Token& prefix, double share) {
  constexpr std::size_t kShort = 3;  // bytes: also of an unspaced character
  return share > (prefix.text.size() <= kShort ? 0.02 : 0.0025);
}

// In which part of the newest messages tokens are, found by counting in as many as are needed.
class Shares {
 public:
  Shares(const Connection& index, const SampledIds& ids)
      : ids_(ids), count_(index, MatchExpression::query("count(*)", ids.table)) {}

  double of(const Token& token) {
    constexpr int64_t kSmall = 1024;
    constexpr int64_t kLarge = 32'768;
    constexpr int64_t kEnough = 8;  // hits
    const double share = in_newest(token, kSmall);
    return share * kSmall < kEnough ? in_newest(token, kLarge) : share;
  }

 private:
  double in_newest(const Token& token, int64_t count) {
    const int64_t first = std::max(ids_.first, ids_.last - count + 1);
    const std::string match = MatchExpression::text(token);
    count_.bind(std::string_view(match), first, ids_.last).row();
    return static_cast<double>(count_.integer(0)) / static_cast<double>(ids_.last - first + 1);
  }

  const SampledIds& ids_;
  Statement count_;
};

}  // namespace

std::vector<Token> selective_tokens(const Connection& index, const SampledIds& ids,
                                    const std::vector<Token>& tokens) {
  if (tokens.size() < 2 || tokens[0].is_prefix) return tokens;
  constexpr std::size_t kMost = 6;  // tokens are weighed; the others are not needed
  Shares shares(index, ids);
  std::array<double, kMost> of_token{};
  std::size_t weighed = 0;
  while (weighed < std::min(kMost, tokens.size()) && !tokens[weighed].is_prefix) {
    of_token[weighed] = shares.of(tokens[weighed]);
    ++weighed;
  }
  constexpr double kTaken = 2;
  std::vector<Token> result;
  double share = 1;  // of all messages have the tokens of the result
  for (std::size_t i = 0; i < weighed; ++i) {
    auto* const rarest = std::min_element(of_token.data(), of_token.data() + weighed);
    if (!result.empty() && is_too_common(*rarest, share)) break;
    result.push_back(tokens[static_cast<std::size_t>(rarest - of_token.data())]);
    share *= *rarest;
    *rarest = kTaken;
  }
  if (tokens.back().is_prefix && is_worthwhile(tokens.back(), share)) {
    result.push_back(tokens.back());
  }
  return result;
}

}  // namespace Corvan::search
