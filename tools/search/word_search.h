// Search for words, in every script, by reading all messages.

#ifndef TOOLS_SEARCH_WORD_SEARCH_H_
#define TOOLS_SEARCH_WORD_SEARCH_H_

#include <cstddef>
#include <string>

#include "addons/search/query.h"
#include "tools/search/criteria.h"

namespace corvan_tool {

class WordSearch {
 public:
  // `text` is a query as for MessageSearch::find(). Throws ToolError if it has nothing to search
  // for.
  explicit WordSearch(const std::string& text);

  // Finds what MessageSearch::find() does. Throws ToolError if the store cannot be read.
  FoundMessages find(const Snapshot& store, const SearchCriteria& criteria) const;

  // The offset of the first hit in the content of a message that was found.
  std::size_t hit_in(const std::string& content) const;

 private:
  const Corvan::search::Query query_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SEARCH_WORD_SEARCH_H_
