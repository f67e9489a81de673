// A store with six messages, and searches in it.

#ifndef TESTS_TOOLS_SEARCH_SAMPLE_H_
#define TESTS_TOOLS_SEARCH_SAMPLE_H_

#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

using Ids = std::vector<int>;

class SearchSample : public ToolTest {
 protected:
  SearchSample() {
    import(line({{"content", "Café am Morgen"},
                 { "sent_time",
                   1700000000001 }}) +  // 1
           line({{"content", "CAFE\xCC\x81 am Abend"},
                 { "sent_time",
                   1700000000005 }}) +  // 2
           line({{"content", "下午开会吗？"},
                 { "sent_time",
                   1700000000003 }}) +  // 3
           line({{"content", "50% off_all 'now'"},
                 { "sent_time",
                   1700000000003 }}) +  // 4
           line({{"content", "am Ende"},
                 {"session_id", "o'her"},
                 { "sent_time",
                   1700000000002 }}) +  // 5
           line({{"content", "am Rand"},
                 {"session_type", 1},
                 { "sent_time",
                   1700000000004 }}));  // 6
  }

  // The ids that a search with these arguments and with `way` finds.
  Ids found(Arguments arguments) {
    arguments.insert(arguments.begin(), {"search", store()});
    arguments.insert(arguments.end(), way.begin(), way.end());
    arguments.emplace_back("--json");
    const Outcome outcome = run(arguments);
    Ids ids;
    const Json result = Json::parse(outcome.out);
    for (const Json& m : result["messages"]) ids.push_back(m["msg_id"]);
    EXPECT_EQ(outcome.status, ids.empty() ? 1 : 0) << outcome.err;
    expect_said(outcome.err, ids.empty() ? "corvan: no such messages\n" : "");
    next = result["next_place"].is_null() ? "" : result["next_place"];
    next_id = next.substr(next.find(':') + 1);
    EXPECT_EQ(keys(result), (Rows{"messages", "next_place", "index"}));
    EXPECT_EQ(result["index"], has_index);
    return ids;
  }

  // The messages of all pages of one message each. `continuation` refers to `next` or `next_id`.
  Ids all_pages(const std::string& text, const std::string& continuation) {
    Ids all;
    Arguments arguments = {text, "--limit", "1"};
    do {
      for (const int id : found(arguments)) all.push_back(id);
      arguments = {text, "--limit", "1", "--before", continuation};
    } while (!continuation.empty() && all.size() < 10);
    return all;
  }

  // Adds messages of another conversation, and makes the index, which found() then expects to be
  // used. Without these messages, a few changes would be a large part of the store.
  void make_index() {
    std::string more;
    for (int i = 0; i < 40; ++i) {
      more += line({{"session_id", "more"}, {"content", "more"}, {"sent_time", 1600000000000 + i}});
    }
    import(more);
    output({"search-index", store()});
    has_index = true;
  }

  // Options of found(): how to search.
  Arguments way;
  bool has_index = false;

  // For --before: the place that the last search returned, and its id alone.
  std::string next;
  std::string next_id;

 private:
  // Removes the line about the index, whose rest depends on what has changed.
  void expect_said(const std::string& err, const std::string& expected) const {
    const std::string used = "corvan: used the search index";
    const bool is_used = err.compare(0, used.size(), used) == 0;
    EXPECT_EQ(is_used, has_index) << err;
    EXPECT_EQ(is_used ? err.substr(err.find('\n') + 1) : err, expected);
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_SEARCH_SAMPLE_H_
