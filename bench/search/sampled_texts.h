// What queries are drawn from.

#ifndef BENCH_SEARCH_SAMPLED_TEXTS_H_
#define BENCH_SEARCH_SAMPLED_TEXTS_H_

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/search/text_parts.h"

namespace corvan_bench {

struct SampledMessage {
  std::string session_id;
  int32_t session_type = 0;
  std::string content;
  TextParts parts;  // of `content`

  SampledMessage() = default;
  SampledMessage(const SampledMessage&) = delete;
  SampledMessage& operator=(const SampledMessage&) = delete;
};

// A word or a run of Chinese characters, and its message.
struct WordPlace {
  const SampledMessage* message;
  std::size_t number;  // of the word or the run in its message
};

// A random sample of a store: of its messages, and of its vocabulary.
class SampledTexts {
 public:
  explicit SampledTexts(const std::string& store_file);

  // Every word of the sampled messages, and every run of Chinese characters.
  const std::vector<WordPlace>& words() const { return words_; }
  const std::vector<WordPlace>& chinese() const { return chinese_; }
  // Different words of all messages, in lower case. Each word of the store has the same chance.
  std::vector<std::string> vocabulary() const;

 private:
  void read(const std::string& store_file);
  void add_places(const SampledMessage& message);
  void add_to_vocabulary(std::string_view word);

  std::vector<std::unique_ptr<SampledMessage>> messages_;
  std::vector<WordPlace> words_;
  std::vector<WordPlace> chinese_;
  std::set<std::pair<std::uint64_t, std::string>> vocabulary_;  // those with the smallest hashes
};

// Those of the candidates that are in no message: words in lower case, and sequences of two or
// three Chinese characters.
std::vector<std::string> absent(const std::string& store_file, std::vector<std::string> candidates);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_SAMPLED_TEXTS_H_
