#include "bench/search/queries.h"

namespace corvan_bench {

const char* name_of(QueryClass query_class) {
  switch (query_class) {
    case QueryClass::kFrequent:
      return "words by frequency";
    case QueryClass::kRare:
      return "words by vocabulary";
    case QueryClass::kTwoWords:
      return "two words";
    case QueryClass::kChinese:
      return "2 to 4 Chinese characters";
    case QueryClass::kCharacter:
      return "one Chinese character";
    case QueryClass::kAbsent:
      return "absent words";
    case QueryClass::kPrefix:
      return "2 to 5 letters and *";
    case QueryClass::kSingleLetter:
      return "one letter and *";
    case QueryClass::kPhrase:
      return "phrases";
    case QueryClass::kFiltered:
      return "words in one conversation";
  }
  return "";
}

std::string text_of(const SearchQuery& query) {
  std::string text;
  for (const std::string& word : query.words) text += (text.empty() ? "" : " ") + word;
  if (query.is_phrase()) return '"' + text + '"';
  return query.is_prefix() ? text + '*' : text;
}

}  // namespace corvan_bench
