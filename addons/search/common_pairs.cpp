#include "addons/search/common_pairs.h"

#include <algorithm>
#include <cstdlib>
#include <unordered_map>
#include <utility>

#include "addons/search/hashing.h"

namespace Corvan::search {

namespace {

constexpr int64_t kWhole = 65'536;  // shares are counted in messages of so many
// Two words are a pair if so many messages, and so large a part of all, would have both by chance.
constexpr int64_t kLeastMessages = 200;
constexpr int64_t kLeastShare = kWhole / 1000;
// A pair is an exception if at least one of so many of these messages has it,
constexpr int64_t kFrequent = 5;
constexpr int64_t kFrequentInSample = 3;  // and at least so many messages of the sample
constexpr int64_t kLeastTexts = 128;
constexpr std::size_t kLongestWord = 32;  // bytes

using Counts = std::unordered_map<std::string, int64_t>;

// The share of the messages that have two words with these shares, by chance.
int64_t joint_share(int64_t first, int64_t second) {
  return first * second / kWhole;
}

// Calls take(line) for each line.
template <typename Take>
void for_each_line(std::string_view lines, Take take) {
  while (!lines.empty()) {
    const std::size_t end = std::min(lines.find('\n'), lines.size());
    take(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
}

void count_each_once(std::vector<std::string>* found, Counts* counts) {
  std::sort(found->begin(), found->end());
  found->erase(std::unique(found->begin(), found->end()), found->end());
  for (std::string& each : *found) ++(*counts)[std::move(each)];
}

// The words that are common together with the most common one, with their shares.
Counts common_words(const std::vector<std::string>& folded, int64_t least) {
  Counts counts;
  for (const std::string& text : folded) {
    std::vector<std::string> words;
    for (std::size_t at = 0;;) {
      const std::string_view chunk = next_chunk(text, at);
      if (chunk.empty()) break;
      if (is_word(chunk) && chunk.size() <= kLongestWord) words.emplace_back(chunk);
    }
    count_each_once(&words, &counts);
  }
  Counts common;
  const auto texts = static_cast<int64_t>(folded.size());
  int64_t largest = 0;
  for (const auto& [word, count] : counts) largest = std::max(largest, count);
  for (const auto& [word, count] : counts) {
    const int64_t share = count * kWhole / texts;
    if (joint_share(share, largest * kWhole / texts) >= least) common.emplace(word, share);
  }
  return common;
}

// How many texts have the pairs of these words.
Counts count_neighbours(const std::vector<std::string>& folded, const Counts& words,
                        int64_t least) {
  Counts counts;
  for (const std::string& text : folded) {
    std::vector<std::string> pairs;
    for_each_pair(text, [&](std::string_view first, std::string_view second) {
      const auto a = words.find(std::string(first));
      if (a == words.end()) return true;
      const auto b = words.find(std::string(second));
      if (b != words.end() && joint_share(a->second, b->second) >= least) {
        pairs.push_back(pair_token(first, second));
      }
      return true;
    });
    count_each_once(&pairs, &counts);
  }
  return counts;
}

bool is_frequent(const std::string& pair, int64_t count, const Counts& words, std::size_t texts) {
  if (count < kFrequentInSample) return false;
  const std::size_t gap = pair.find(FoldedText::kGap);
  const int64_t by_chance =
      joint_share(words.at(pair.substr(0, gap)), words.at(pair.substr(gap + 1)));
  return count * kWhole * kFrequent >= by_chance * static_cast<int64_t>(texts);
}

}  // namespace

std::string pair_token(std::string_view first, std::string_view second) {
  return std::string(first) + FoldedText::kGap + std::string(second);
}

CommonPairs::CommonPairs(int64_t least, std::string_view words, std::string_view exceptions)
    : least_(least) {
  std::size_t places = 1;
  while (places <= words.size() / 2) places *= 2;  // a line has four bytes or more
  if (!words.empty()) words_.resize(places);
  for_each_line(words, [this](std::string_view line) {
    const std::size_t gap = line.find(' ');
    if (gap == std::string_view::npos) return;
    const std::string share(line.substr(gap + 1));
    add_word({hash_of(line.substr(0, gap)), std::strtoll(share.c_str(), nullptr, 10)});
  });
  for_each_line(exceptions, [this](std::string_view line) {
    const std::size_t gap = std::min(line.find(FoldedText::kGap), line.size() - 1);
    exceptions_.insert(mixed(hash_of(line.substr(0, gap)), hash_of(line.substr(gap + 1))));
  });
}

void CommonPairs::add_word(const Word& word) {
  std::size_t place = place_of(word.hash);
  while (words_[place].share != 0) place = place_of(place + 1);
  words_[place] = word;
}

CommonPairs::Word CommonPairs::word(std::string_view word) const {
  const uint64_t hash = hash_of(word);
  if (is_empty()) return {hash, 0};
  for (std::size_t place = place_of(hash);; place = place_of(place + 1)) {
    const Word& known = words_[place];
    if (known.share == 0 || known.hash == hash) return {hash, known.share};
  }
}

bool CommonPairs::has(const Word& first, const Word& second) const {
  if (is_empty() || joint_share(first.share, second.share) < least_) return false;
  return exceptions_.count(mixed(first.hash, second.hash)) == 0;
}

PairLists count_pairs(const std::vector<std::string>& folded, int64_t messages) {
  PairLists lists;
  if (static_cast<int64_t>(folded.size()) < kLeastTexts || messages < kLeastTexts) return lists;
  lists.least = std::max(kLeastShare, kLeastMessages * kWhole / messages);
  const Counts words = common_words(folded, lists.least);
  for (const auto& [word, share] : words) lists.words += word + ' ' + std::to_string(share) + '\n';
  for (const auto& [pair, count] : count_neighbours(folded, words, lists.least)) {
    if (is_frequent(pair, count, words, folded.size())) lists.exceptions += pair + '\n';
  }
  return lists;
}

}  // namespace Corvan::search
