#include "addons/search/message_search.h"

#include "addons/search/query.h"

namespace Corvan {

namespace search {
class Indexing {};
class Reading {};
}  // namespace search

const char* to_text(SearchStatus /*status*/) {
  return "";
}

MessageSearch::MessageSearch(const cvrtc::Pathname& folder) : folder_(folder.folder()) {}
MessageSearch::~MessageSearch() = default;

SearchStatus MessageSearch::open() {
  return SearchStatus::kIndexError;
}

SearchResults MessageSearch::find(const std::string& /*query*/, const SearchOptions& /*options*/) {
  return {};
}

SearchWork MessageSearch::catch_up(std::chrono::microseconds /*budget*/) {
  return {};
}

SearchStatus MessageSearch::changed(int64_t /*id*/) {
  return SearchStatus::kIndexError;
}

SearchWork MessageSearch::sweep(std::chrono::microseconds /*budget*/) {
  return {};
}

SearchProgress MessageSearch::progress() {
  return {};
}

std::vector<SearchRange> MessageSearch::snippet(const std::string& text, const std::string& query) {
  return search::Query(query).ranges(text);
}

bool MessageSearch::remove(const cvrtc::Pathname& /*folder*/) {
  return false;
}

}  // namespace Corvan
