// Searches with a copy of the store's search index.

#ifndef TOOLS_SEARCH_INDEX_COPY_H_
#define TOOLS_SEARCH_INDEX_COPY_H_

#include <optional>
#include <string>

#include "addons/search/message_search.h"
#include "tools/search/criteria.h"
#include "tools/search/index_work.h"
#include "tools/store/key.h"

namespace corvan_tool {

// The copy is beside the snapshot, and is brought up to date with it. So a search finds what
// WordSearch does, and the original stays as it is.
class IndexCopy {
 public:
  // Copies the index in `folder`, that of the snapshot's original, if there is one.
  IndexCopy(const std::string& folder, const Snapshot& store);

  // Nothing if there is no index, or if it cannot be used; then note() says why.
  std::optional<FoundMessages> find(const SearchCriteria& criteria);

  // What to tell the user; empty if there is no index.
  const std::string& note() const { return note_; }

 private:
  bool copy(const std::string& folder);
  bool is_worth_updating();
  bool update();
  void advise(const char* state);
  bool require(Corvan::SearchStatus status);

  const std::string folder_;
  const Snapshot& store_;
  std::string note_;
  const bool is_copied_;
  const FolderKey key_;
  Corvan::MessageSearch search_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SEARCH_INDEX_COPY_H_
