#include "tools/search/word_search.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <new>
#include <queue>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

using Place = std::pair<int64_t, int64_t>;  // time and id

// Chooses the newest messages that match. To match a text takes longer than to read it, so a
// message that is older than enough others is not matched.
class NewestMatches {
 public:
  NewestMatches(const Corvan::search::Query& query, int64_t most) : query_(query), most_(most) {}

  // Whether the message matches and may be among the newest.
  bool add(const Place& place, std::string_view content) {
    const bool is_full = static_cast<int64_t>(newest_.size()) >= most_;
    if ((is_full && place < newest_.top()) || !query_.matches(content)) return false;
    newest_.push(place);
    if (is_full) newest_.pop();
    return true;
  }

 private:
  const Corvan::search::Query& query_;
  const int64_t most_;
  std::priority_queue<Place, std::vector<Place>, std::greater<>> newest_;  // the oldest on top
};

// The SQL function newest_match(TIME,ID,CONTENT).
void match_values(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const Place place(sqlite3_value_int64(values[0]), sqlite3_value_int64(values[1]));
  const unsigned char* const text = sqlite3_value_text(values[2]);
  if (text == nullptr) return;
  try {
    auto& matches = *static_cast<NewestMatches*>(sqlite3_user_data(context));
    const std::string_view content(reinterpret_cast<const char*>(text),
                                   static_cast<std::size_t>(sqlite3_value_bytes(values[2])));
    sqlite3_result_int(context, matches.add(place, content) ? 1 : 0);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

int register_function(const Snapshot& store, NewestMatches* matches) {
  return sqlite3_create_function_v2(store.connection().handle(), "newest_match", 3, SQLITE_UTF8,
                                    matches, matches == nullptr ? nullptr : match_values, nullptr,
                                    nullptr, nullptr);
}

}  // namespace

WordSearch::WordSearch(const std::string& text) : query_(text) {
  if (text.size() > Corvan::MessageSearch::kLongestQuery) {
    throw ToolError(fmt::format("\"{}\" has {} bytes, more than {}; --literal has no limit",
                                shortened(text), text.size(),
                                Corvan::MessageSearch::kLongestQuery));
  }
  if (!query_.is_empty()) return;
  throw ToolError("\"" + shortened(text) +
                  "\" has no word to search for; --literal finds any characters");
}

FoundMessages WordSearch::find(const Snapshot& store, const SearchCriteria& criteria) const {
  NewestMatches matches(query_, criteria.most);
  if (register_function(store, &matches) != SQLITE_OK) {
    throw ToolError(store.name() + ": " + store.connection().error());
  }
  FoundMessages found = select_messages(
      store, criteria, "newest_match(" + std::string(kMessageTime) + ",id,content)", "");
  register_function(store, nullptr);
  return found;
}

std::size_t WordSearch::hit_in(const std::string& content) const {
  const std::vector<Corvan::SearchRange> ranges = query_.ranges(content);
  return ranges.empty() ? content.size() : ranges.front().begin;
}

}  // namespace corvan_tool
