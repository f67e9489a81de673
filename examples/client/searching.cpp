#include "examples/client/searching.h"

#if defined(WITH_SEARCH)

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

#include "addons/search/message_search.h"

namespace example {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Messages = std::vector<Corvan::MessageResponse>;

struct Search {
  const char* query;
  const char* beginning;  // of the messages that the query must find
};

// Users write "hello TURN.NUMBER" or "spam TURN.NUMBER".
constexpr std::array<Search, 4> kSearches = {
    {{"HELLO", "hello "}, {"spa*", "spam "}, {"\"hello 3\"", "hello 3."}, {"hell", "hell "}}};

// Fetches all results in pages of five.
bool find_all(MessageSearch& search, const std::string& query, std::vector<int64_t>* ids) {
  Corvan::SearchOptions options;
  options.limit = 5;
  do {
    const auto page = search.find(query, options);
    if (page.status != SearchStatus::kOk) return false;
    for (const auto& hit : page.hits) ids->push_back(hit.id);
    options.before = page.next;
  } while (options.before);
  return true;
}

std::vector<int64_t> ids_of(const Messages& stored, const std::string& beginning) {
  std::vector<int64_t> ids;
  for (const auto& message : stored) {
    if (message.content_.rfind(beginning, 0) == 0) ids.push_back(message.msg_id_);
  }
  return ids;
}

bool agrees(MessageSearch& search, const Search& wanted, const Messages& stored) {
  std::vector<int64_t> found;
  if (!find_all(search, wanted.query, &found)) return false;
  std::vector<int64_t> expected = ids_of(stored, wanted.beginning);
  std::sort(found.begin(), found.end());
  std::sort(expected.begin(), expected.end());
  return found == expected;
}

}  // namespace

std::vector<std::string> search_differences(const std::string& folder, const Messages& stored) {
  MessageSearch search(cvrtc::Pathname(folder + "/"));
  std::vector<std::string> lines;
  // What the time does not suffice for is found all the same, only more slowly.
  if (search.catch_up(std::chrono::milliseconds(50)).status != SearchStatus::kOk) {
    lines.emplace_back("the messages cannot be indexed");
  }
  for (const Search& wanted : kSearches) {
    if (!agrees(search, wanted, stored)) {
      lines.push_back(std::string("the search for ") + wanted.query + " disagrees with the store");
    }
  }
  return lines;
}

}  // namespace example

#else

std::vector<std::string> example::search_differences(
    const std::string& /*folder*/, const std::vector<Corvan::MessageResponse>& /*stored*/) {
  return {};
}

#endif
