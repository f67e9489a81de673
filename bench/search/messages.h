// The messages of the stores in which the benchmark searches.

#ifndef BENCH_SEARCH_MESSAGES_H_
#define BENCH_SEARCH_MESSAGES_H_

#include <cstdint>
#include <fstream>
#include <string>

#include "bench/search/random.h"
#include "bench/search/vocabulary.h"
#include "db/cv_db_records.h"

namespace corvan_bench {

// Messages in order of time.
class MessageSource {
 public:
  MessageSource() = default;
  MessageSource(const MessageSource&) = delete;
  MessageSource& operator=(const MessageSource&) = delete;
  virtual ~MessageSource() = default;

  // The next message. False if there is none.
  virtual bool next(Corvan::MessageResponse& message) = 0;
};

// A log with one JSON object per line. Throws std::exception if it cannot be read.
class LoggedMessages : public MessageSource {
 public:
  explicit LoggedMessages(const std::string& file);
  bool next(Corvan::MessageResponse& message) override;

 private:
  std::ifstream in_;
};

// Texts with natural frequencies of words. In three of ten conversations they are Chinese, in the
// others in words of Latin letters. Some messages are captions of pictures, mix the languages, or
// end with an emoji. Equal counts give equal messages.
class GeneratedMessages : public MessageSource {
 public:
  explicit GeneratedMessages(int64_t count);
  bool next(Corvan::MessageResponse& message) override;

 private:
  void choose_conversation();
  std::string content();
  std::string latin_text();
  std::string chinese_text();
  bool is_chinese();

  const int64_t count_;
  const std::size_t conversations_;
  Random random_;
  WordRanks ranks_;
  std::size_t conversation_ = 0;
  int64_t made_ = 0;
  int64_t time_ = 1700000000000;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_MESSAGES_H_
