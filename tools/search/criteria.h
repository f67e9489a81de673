// What a search looks for besides the text, and how it reads what it finds.

#ifndef TOOLS_SEARCH_CRITERIA_H_
#define TOOLS_SEARCH_CRITERIA_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "addons/search/message_search.h"
#include "db/cv_db_records.h"

namespace corvan_tool {

class Snapshot;

struct SearchCriteria {
  std::string text;
  std::optional<std::string> session_id;
  std::vector<Corvan::SessionType> types;     // empty: all
  std::optional<Corvan::SearchPlace> before;  // only messages after this place in the results
  int64_t most = 0;                           // at most so many messages
};

// The newest messages first; of those with the same time, the one with the larger id.
using FoundMessages = std::vector<Corvan::MessageResponse>;

// Selects the messages for which `condition` holds, an SQL expression in which ?1 is `text`. It is
// computed only for messages that the other criteria admit, usually from the largest id down.
// Throws ToolError if the store cannot be read.
FoundMessages select_messages(const Snapshot& store, const SearchCriteria& criteria,
                              const std::string& condition, const std::string& text);

// Reads the messages with these ids, in this order. Throws ToolError if the store cannot be read.
FoundMessages read_messages(const Snapshot& store, const std::vector<Corvan::SearchHit>& hits);

}  // namespace corvan_tool

#endif  // TOOLS_SEARCH_CRITERIA_H_
