// What a search must find: a scan over all rows of the store, by the rule for single texts.

#ifndef TESTS_ADDONS_SEARCH_TRUTH_H_
#define TESTS_ADDONS_SEARCH_TRUTH_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "addons/search/message_search.h"

namespace corvan_test {

struct StoredMessage {
  int64_t id = 0;
  int64_t time = 0;  // non-numeric times read as 0
  std::string session_id;
  int32_t session_type = 0;
  std::string kind;
  std::string sender;
  std::string text;
};

// Time and id of messages, in the order of the results.
using Hits = std::vector<std::pair<int64_t, int64_t>>;
using Ids = std::set<int64_t>;

// A budget that is never used up.
constexpr std::chrono::microseconds kPlenty = std::chrono::minutes(1);

class Truth {
 public:
  // Reads the store through a connection of its own. A file that does not exist has no rows.
  explicit Truth(const std::string& store_file);

  // From the newest to the oldest.
  const std::vector<StoredMessage>& messages() const { return messages_; }
  Ids ids() const;

  // All messages that match; limit, place and time limit of the options are ignored.
  Hits hits(const std::string& query, const Corvan::SearchOptions& options) const;
  // The same without options; computed once.
  const Hits& hits(const std::string& query) const;

 private:
  std::vector<StoredMessage> messages_;
  mutable std::map<std::string, Hits> hits_;
};

// Pages through the results until there are no more. `fault` says what is wrong with the pages: a
// status other than kOk, their order, a page that exceeds the limit, a place that did not move.
struct Pages {
  Hits hits;
  std::string fault;
  int calls = 0;
};
Pages find_all(Corvan::MessageSearch& search, const std::string& query,
               Corvan::SearchOptions options = Corvan::SearchOptions());

// Searches and compares with the truth. Returns a complaint, or an empty text. Messages in
// `may_miss` need not be found.
std::string compare(Corvan::MessageSearch& search, const Truth& truth, const std::string& query,
                    const Corvan::SearchOptions& options, const Ids& may_miss = Ids());

// The same without options, for each of these queries.
std::string compare(Corvan::MessageSearch& search, const Truth& truth,
                    const std::vector<std::string>& queries, const Ids& may_miss = Ids());

// A call of sweep() and catch_up() that gives them all the time that they need, until they are
// complete. Returns a complaint, or an empty text.
std::string catch_up_all(Corvan::MessageSearch& search);
// Ends the pass that is under way.
std::string sweep_to_end(Corvan::MessageSearch& search);
// Catches up, ends the pass that is under way, and makes a whole one.
std::string mend_all(Corvan::MessageSearch& search);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_TRUTH_H_
