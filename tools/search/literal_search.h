// Search for a text as it is written.

#ifndef TOOLS_SEARCH_LITERAL_SEARCH_H_
#define TOOLS_SEARCH_LITERAL_SEARCH_H_

#include <cstddef>
#include <string>

#include "tools/search/criteria.h"

namespace corvan_tool {

class LiteralSearch {
 public:
  enum LetterCase { kExact, kIgnored };

  LiteralSearch(const std::string& text, LetterCase letter_case);

  // Reads all messages. Throws ToolError if the store cannot be read.
  FoundMessages find(const Snapshot& store, const SearchCriteria& criteria) const;

  // The offset of the first hit in the content of a message that was found.
  std::size_t hit_in(const std::string& content) const;

 private:
  const LetterCase letter_case_;
  const std::string text_;  // folded if letter case is ignored
};

}  // namespace corvan_tool

#endif  // TOOLS_SEARCH_LITERAL_SEARCH_H_
