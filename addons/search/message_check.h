// Whether messages are in the results of a search.

#ifndef ADDONS_SEARCH_MESSAGE_CHECK_H_
#define ADDONS_SEARCH_MESSAGE_CHECK_H_

#include <cstdint>
#include <optional>

#include "addons/search/message_search.h"
#include "addons/search/query.h"
#include "addons/search/store_reader.h"

namespace Corvan::search {

class MessageCheck {
 public:
  MessageCheck(const StoreReader& store, const Query& query, const SearchOptions& options,
               bool has_time_order);

  // Whether the options limit the search to some conversations, kinds or senders.
  bool has_filter() const { return has_filter_; }

  // The message's place if the options admit its kind, conversation and sender.
  std::optional<SearchPlace> place_of(int64_t id);
  // The same, if its content matches the query, too.
  std::optional<SearchPlace> place_of_hit(int64_t id);

 private:
  bool is_admitted(int64_t id);
  SearchPlace place(int64_t id) const { return {message_.integer(0), id}; }

  const Query& query_;
  const SearchOptions& options_;
  const bool has_filter_;
  Statement message_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_MESSAGE_CHECK_H_
