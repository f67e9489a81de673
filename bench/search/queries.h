// What the contenders are asked.

#ifndef BENCH_SEARCH_QUERIES_H_
#define BENCH_SEARCH_QUERIES_H_

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace corvan_bench {

enum class QueryClass {
  kFrequent,      // a word, drawn from all words of the texts
  kRare,          // a word, drawn from the vocabulary, in which each word is once
  kTwoWords,      // two words of one message
  kChinese,       // two to four Chinese characters that follow each other in a text
  kCharacter,     // one Chinese character
  kAbsent,        // words, and sequences of Chinese characters, that no message contains
  kPrefix,        // two to five letters with which a longer word begins, and *
  kSingleLetter,  // one letter and *
  kPhrase,        // two or three words that follow each other, in quotation marks
  kFiltered,      // a word of a message, only in the message's conversation
};

inline constexpr std::array kQueryClasses = {
    QueryClass::kFrequent,  QueryClass::kRare,    QueryClass::kTwoWords, QueryClass::kChinese,
    QueryClass::kCharacter, QueryClass::kAbsent,  QueryClass::kPrefix,   QueryClass::kSingleLetter,
    QueryClass::kPhrase,    QueryClass::kFiltered};

const char* name_of(QueryClass query_class);

struct SearchQuery {
  QueryClass query_class = QueryClass::kFrequent;
  std::vector<std::string> words;
  int32_t session_type = 0;
  std::string session_id;  // empty: in all conversations

  bool is_phrase() const { return query_class == QueryClass::kPhrase; }
  bool is_prefix() const {
    return query_class == QueryClass::kPrefix || query_class == QueryClass::kSingleLetter;
  }
  bool is_chinese() const {
    return query_class == QueryClass::kChinese || query_class == QueryClass::kCharacter;
  }
};

// In the library's syntax.
std::string text_of(const SearchQuery& query);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_QUERIES_H_
