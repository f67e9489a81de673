#include "bench/search/sampled_texts.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <unordered_set>

#include "bench/search/database.h"
#include "bench/search/random.h"

namespace corvan_bench {

namespace {

constexpr int64_t kMessages = 20'000;
constexpr std::size_t kVocabulary = 2000;

std::string in_lower_case(std::string_view word) {
  std::string lower(word);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return lower;
}

std::uint64_t hash_of(std::string_view word) {
  std::uint64_t hash = 0;
  for (const char c : word) hash = scrambled(hash ^ static_cast<unsigned char>(c));
  return hash;
}

int64_t count_messages(const Database& database) {
  Statement count(database, "select count(*) from t_message");
  count.step();
  return count.number(0);
}

void for_each_text(const std::string& store_file,
                   const std::function<void(const Statement& row)>& take) {
  const Database database(store_file);
  Statement rows(database, "select content,session_id,session_type from t_message");
  while (rows.step()) take(rows);
}

// Calls `take` with each word in lower case, and with each sequence of two or three characters.
template <typename Function>
void for_each_candidate(std::string_view text, const Function& take) {
  const TextParts parts = parts_of(text);
  for (const std::string_view word : parts.words) take(in_lower_case(word));
  for (const auto& run : parts.chinese) {
    for (std::size_t i = 0; i < run.size(); ++i) {
      if (i + 2 <= run.size()) take(std::string(part_of_run(run, i, 2)));
      if (i + 3 <= run.size()) take(std::string(part_of_run(run, i, 3)));
    }
  }
}

}  // namespace

SampledTexts::SampledTexts(const std::string& store_file) {
  read(store_file);
}

void SampledTexts::read(const std::string& store_file) {
  const double share =
      static_cast<double>(kMessages) / static_cast<double>(count_messages(Database(store_file)));
  Random random(1);
  for_each_text(store_file, [&](const Statement& row) {
    for (const std::string_view word : parts_of(row.text(0)).words) add_to_vocabulary(word);
    if (!random.chance(share)) return;
    auto message = std::make_unique<SampledMessage>();
    message->content = row.text(0);
    message->session_id = row.text(1);
    message->session_type = static_cast<int32_t>(row.number(2));
    message->parts = parts_of(message->content);
    add_places(*message);
    messages_.push_back(std::move(message));
  });
}

void SampledTexts::add_places(const SampledMessage& message) {
  for (std::size_t i = 0; i < message.parts.words.size(); ++i) words_.push_back({&message, i});
  for (std::size_t i = 0; i < message.parts.chinese.size(); ++i) chinese_.push_back({&message, i});
}

void SampledTexts::add_to_vocabulary(std::string_view word) {
  std::string lower = in_lower_case(word);
  const std::uint64_t hash = hash_of(lower);
  if (vocabulary_.size() == kVocabulary && hash >= vocabulary_.rbegin()->first) return;
  vocabulary_.emplace(hash, std::move(lower));
  if (vocabulary_.size() > kVocabulary) vocabulary_.erase(std::prev(vocabulary_.end()));
}

std::vector<std::string> SampledTexts::vocabulary() const {
  std::vector<std::string> words;
  for (const auto& [hash, word] : vocabulary_) words.push_back(word);
  return words;
}

std::vector<std::string> absent(const std::string& store_file,
                                std::vector<std::string> candidates) {
  std::unordered_set<std::string> left(candidates.begin(), candidates.end());
  for_each_text(store_file, [&left](const Statement& row) {
    for_each_candidate(row.text(0), [&left](const std::string& present) { left.erase(present); });
  });
  const auto is_present = [&left](const std::string& word) { return left.count(word) == 0; };
  candidates.erase(std::remove_if(candidates.begin(), candidates.end(), is_present),
                   candidates.end());
  return candidates;
}

}  // namespace corvan_bench
