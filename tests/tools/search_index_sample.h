// A store with a search index.

#ifndef TESTS_TOOLS_SEARCH_INDEX_SAMPLE_H_
#define TESTS_TOOLS_SEARCH_INDEX_SAMPLE_H_

#include <string>

#include "tests/tools/program.h"

namespace corvan_test {

// What a search says that has used the index.
inline constexpr const char* kUsed = "corvan: used the search index";

class SearchIndexSample : public ToolTest {
 protected:
  // Saves messages "number N", from `first` to `last`.
  void import_numbers(int first, int last) {
    std::string lines;
    for (int i = first; i <= last; ++i) {
      lines += line({{"content", "number " + std::to_string(i)}, {"sent_time", 1700000000000 + i}});
    }
    import(lines);
  }

  Json update() { return json({"search-index", store(), "--json"}); }

  std::string index_file() const { return store() + "/corvan-search"; }

  // Searches with and without the index, and expects the same result, and `note` on standard error.
  // Returns the number of messages.
  std::size_t compare(const Arguments& more, const std::string& note = kUsed) {
    Arguments arguments = {"search", store(), "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome with = run(arguments);
    arguments.emplace_back("--no-index");
    const Outcome without = run(arguments);
    EXPECT_EQ(with.err.compare(0, note.size(), note), 0) << with.err;
    EXPECT_EQ(with.status, without.status);
    Json found = Json::parse(with.out);
    Json expected = Json::parse(without.out);
    EXPECT_EQ(found["index"], with.err.rfind(kUsed, 0) == 0);
    EXPECT_EQ(expected["index"], false);
    found.erase("index");
    expected.erase("index");
    EXPECT_EQ(found, expected) << more[0];
    return expected["messages"].size();
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_SEARCH_INDEX_SAMPLE_H_
