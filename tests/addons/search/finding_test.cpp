// What find() and snippet() promise.

#include <limits>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchPlace;
using Corvan::SearchResults;
using Corvan::SearchStatus;
using Corvan::SearchWork;

class SearchFinding : public SearchTest {};

// ---- Finding ------------------------------------------------------------------------------------

TEST_F(SearchFinding, FindsWithAndWithoutAnIndex) {
  const int64_t first = save({"hello world", 100});
  const int64_t second = save({"World, hello!", 200});
  save({"help", 300});
  MessageSearch search(path());
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ids(search, "hello world"), (Found{second, first}));
    EXPECT_EQ(ids(search, "\"hello world\""), Found{first});
    EXPECT_EQ(ids(search, "nothing"), Found{});
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, BadQueriesAndLimits) {
  save({});
  MessageSearch search(path());
  for (const char* const query : {"", " ", "\"\"", "...", "*", "\"", "“”", " - ", "\xff"}) {
    const SearchResults results = search.find(query);
    EXPECT_EQ(results.status, SearchStatus::kBadQuery) << query;
    EXPECT_TRUE(results.hits.empty() && !results.next) << query;
  }
  for (const int32_t limit : {0, -1, std::numeric_limits<int32_t>::min()}) {
    SearchOptions options;
    options.limit = limit;
    EXPECT_EQ(search.find("hello", options).status, SearchStatus::kBadQuery) << limit;
  }
  EXPECT_EQ(search.find("hello").hits.size(), 1U);
}

TEST_F(SearchFinding, EmptyRangeOfTimesFindsNothing) {
  save({});
  MessageSearch search(path());
  SearchOptions options;
  options.from_time = 200;
  options.to_time = 100;
  const SearchResults results = search.find("hello", options);
  EXPECT_TRUE(results.status == SearchStatus::kOk || results.status == SearchStatus::kBadQuery);
  EXPECT_TRUE(results.hits.empty() && !results.next);
}

TEST_F(SearchFinding, HitsHaveTheirTimesAndOrder) {
  const int64_t a = save({"hello", 200});
  const int64_t b = save({"hello", 100});
  const int64_t c = save({"hello", 200});
  MessageSearch search(path());
  for (int i = 0; i < 2; ++i) {
    const SearchResults results = search.find("hello");
    ASSERT_EQ(results.hits.size(), 3U);
    EXPECT_EQ(ids(search, "hello"), (Found{c, a, b}));
    EXPECT_EQ(results.hits[0].sent_time, 200);
    EXPECT_EQ(results.hits[2].sent_time, 100);
    EXPECT_FALSE(results.next);
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, EachOptionLimitsTheResults) {
  const int64_t a = save({"hello", 1, "one", Corvan::CV_PRIVATE, "A", "x"});
  const int64_t b = save({"hello", 2, "two", Corvan::CV_GROUP, "B", "y"});
  const int64_t c = save({"hello", 3, "one", Corvan::CV_GROUP, "C", "z"});
  MessageSearch search(path());
  for (int i = 0; i < 2; ++i) {
    SearchOptions in;
    in.session_id = "one";
    EXPECT_EQ(ids(search, "hello", in), (Found{c, a}));
    in.session_types = {Corvan::CV_GROUP};
    EXPECT_EQ(ids(search, "hello", in), Found{c});
    in.session_id = "";
    EXPECT_EQ(ids(search, "hello", in), Found{});
    SearchOptions types;
    types.session_types = {Corvan::CV_PRIVATE, Corvan::CV_CHATROOM};
    EXPECT_EQ(ids(search, "hello", types), Found{a});
    SearchOptions kinds;
    kinds.object_names = {"A", "C", "it's"};
    EXPECT_EQ(ids(search, "hello", kinds), (Found{c, a}));
    SearchOptions sender;
    sender.sender = "y";
    EXPECT_EQ(ids(search, "hello", sender), Found{b});
    SearchOptions times;
    times.from_time = 2;
    EXPECT_EQ(ids(search, "hello", times), (Found{c, b}));
    times.to_time = 2;
    EXPECT_EQ(ids(search, "hello", times), Found{b});
    SearchOptions place;
    place.before = SearchPlace{2, b};
    EXPECT_EQ(ids(search, "hello", place), Found{a});
    place.before = SearchPlace{2, b + 1};
    EXPECT_EQ(ids(search, "hello", place), (Found{b, a}));
    SearchOptions few;
    few.limit = 2;
    const SearchResults results = search.find("hello", few);
    EXPECT_EQ(results.hits.size(), 2U);
    ASSERT_TRUE(results.next);
    few.before = results.next;
    EXPECT_EQ(ids(search, "hello", few), Found{a});
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, ExtremeTimesAndPlaces) {
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
  constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
  for (const char* const time : {"9223372036854775807", "-9223372036854775808", "0", "-1", "null",
                                 "'later'", "'12 o''clock'", "1.5", "x'3132'"}) {
    const int64_t id = save({});
    plant(file(), std::string("update t_message set sent_time=") + time +
                      " where id=" + std::to_string(id));
  }
  MessageSearch search(path());
  for (int i = 0; i < 2; ++i) {
    for (const int32_t limit : {1, 3, 20}) {
      SearchOptions options;
      options.limit = limit;
      EXPECT_EQ(compare(search, truth(), "hello", options), "");
      options.from_time = kMost;
      EXPECT_EQ(compare(search, truth(), "hello", options), "");
      options.from_time = kLeast;
      options.to_time = kLeast;
      EXPECT_EQ(compare(search, truth(), "hello", options), "");
      options.to_time = 0;
      EXPECT_EQ(compare(search, truth(), "hello", options), "");
    }
    SearchOptions all;
    all.before = SearchPlace{kMost, kMost};
    EXPECT_EQ(ids(search, "hello", all).size(), 9U);
    all.before = SearchPlace{kLeast, kLeast};
    EXPECT_EQ(ids(search, "hello", all).size(), 0U);
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, TextsOfAnyKind) {
  const std::vector<std::string> contents = {
      "null",         "''", "x'68656c6c6f'", "42", "x'ff00fe'", "'hello'||char(0)||'after'",
      "zeroblob(100)"};
  for (const std::string& content : contents) {
    const int64_t id = save({"old text"});
    plant(file(), "update t_message set content=" + content + " where id=" + std::to_string(id));
  }
  MessageSearch search(path());
  const std::vector<std::string> queries = {"hello", "42", "after", "old", "text"};
  EXPECT_EQ(compare(search, truth(), queries), "");
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_EQ(compare(search, truth(), queries), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(search.sweep(kPlenty).mended, 0);
}

TEST_F(SearchFinding, LongTexts) {
  std::string text = "first ";
  while (text.size() < 3000000) text += "word" + std::to_string(text.size()) + " 电影 ";
  const int64_t id = save({text + "last"});
  MessageSearch search(path());
  for (int i = 0; i < 2; ++i) {
    for (const char* const query : {"first", "last", "\"电影 last\""}) {
      EXPECT_EQ(ids(search, query), Found{id}) << query;
    }
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, LongQueries) {
  const int64_t id = save({"hello 电影"});
  MessageSearch search(path());
  EXPECT_EQ(catch_up_all(search), "");
  std::string many;
  for (int i = 0; i < 350; ++i) many += "hello 影 ";
  EXPECT_EQ(ids(search, many), Found{id});
  std::string different;
  for (int i = 0; i < 380; ++i) different += "hello" + std::to_string(i) + "* ";
  EXPECT_EQ(ids(search, different), Found{});
  EXPECT_EQ(ids(search, "\"" + std::string(4000, '-') + "hello"), Found{id});
}

TEST_F(SearchFinding, TooLongQueries) {
  save({"hello"});
  MessageSearch search(path());
  const std::string longest = "hello" + std::string(MessageSearch::kLongestQuery - 5, ' ');
  EXPECT_EQ(search.find(longest).status, SearchStatus::kOk);
  EXPECT_EQ(search.find(longest).hits.size(), 1U);
  EXPECT_EQ(search.find(longest + ' ').status, SearchStatus::kBadQuery);
  EXPECT_EQ(MessageSearch::snippet("hello", longest).size(), 1U);
  EXPECT_EQ(MessageSearch::snippet("hello", longest + ' ').size(), 0U);
}

TEST_F(SearchFinding, TextsOfTheQueryAreNotSyntax) {
  const int64_t id = save({"NEAR(a b) AND c OR d NOT e content:f ^g -h + (i) {j} x'k"});
  MessageSearch search(path());
  EXPECT_EQ(catch_up_all(search), "");
  for (const char* const query :
       {"AND", "OR", "NOT", "NEAR", "NEAR(a b)", "content:f", "^g", "-h", "+", "(i)", "{j}", "x'k",
        "a AND c", "a NOT b", "a + b", "'; drop table t_message; --", "a\"b", "\"a\"\"b\""}) {
    EXPECT_EQ(compare(search, truth(), query, SearchOptions()), "");
  }
  EXPECT_EQ(ids(search, "NEAR NOT AND OR"), Found{id});
}

TEST_F(SearchFinding, SavedMessageIsFoundAtOnce) {
  MessageSearch search(path());
  ASSERT_EQ(search.open(), SearchStatus::kOk);
  for (int i = 0; i < 300; ++i) {
    const int64_t id = save({"number" + std::to_string(i)});
    ASSERT_EQ(ids(search, "number" + std::to_string(i)), Found{id});
    if (i % 7 != 0) continue;
    ASSERT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchFinding, UncommittedMessageIsNotFound) {
  MessageSearch search(path());
  ASSERT_EQ(search.open(), SearchStatus::kOk);
  ASSERT_TRUE(the_store().start_transaction());
  const int64_t id = save({});
  EXPECT_EQ(ids(search, "hello"), Found{});
  EXPECT_EQ(catch_up_all(search), "");
  ASSERT_TRUE(the_store().commit_transaction());
  EXPECT_EQ(ids(search, "hello"), Found{id});
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_EQ(ids(search, "hello"), Found{id});
}

TEST_F(SearchFinding, DeletedMessageIsNotFound) {
  const int64_t first = save({});
  const int64_t second = save({});
  MessageSearch search(path());
  EXPECT_EQ(catch_up_all(search), "");
  ASSERT_TRUE(the_store().delete_message({second}));
  EXPECT_EQ(ids(search, "hello"), Found{first});
  EXPECT_EQ(search.changed(second), SearchStatus::kOk);
  EXPECT_EQ(ids(search, "hello"), Found{first});
}

TEST_F(SearchFinding, EditedMessageIsFoundByItsPresentWords) {
  const int64_t id = save({"before"});
  MessageSearch search(path());
  EXPECT_EQ(catch_up_all(search), "");
  ASSERT_TRUE(the_store().set_message_content(id, "after", ""));
  EXPECT_EQ(ids(search, "before"), Found{});
  EXPECT_EQ(search.changed(id), SearchStatus::kOk);
  EXPECT_EQ(ids(search, "after"), Found{id});
  ASSERT_TRUE(the_store().set_message_content(id, "again", ""));
  const SearchWork work = search.sweep(kPlenty);
  EXPECT_EQ(work.mended, 1);
  EXPECT_TRUE(work.complete);
  EXPECT_EQ(ids(search, "again"), Found{id});
  EXPECT_EQ(ids(search, "after"), Found{});
}

TEST_F(SearchFinding, ChangedOfUnknownIds) {
  const int64_t id = save({});
  MessageSearch search(path());
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
  for (const int64_t unknown : {int64_t{0}, int64_t{-1}, id, id + 1, kMost, -kMost - 1}) {
    EXPECT_EQ(search.changed(unknown), SearchStatus::kOk) << unknown;
  }
  EXPECT_EQ(catch_up_all(search), "");
  for (const int64_t unknown : {int64_t{0}, int64_t{-1}, id, id + 1, kMost, -kMost - 1}) {
    EXPECT_EQ(search.changed(unknown), SearchStatus::kOk) << unknown;
  }
  const int64_t later = save({});
  EXPECT_EQ(ids(search, "hello"), (Found{later, id}));
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_EQ(ids(search, "hello"), (Found{later, id}));
}

// ---- snippet() ----------------------------------------------------------------------------------

TEST_F(SearchFinding, SnippetGivesTheMatchesInOrder) {
  const std::string text = "Hello world, HELLO 电影";
  std::vector<std::string> parts;
  for (const auto& range : MessageSearch::snippet(text, "hello 影")) {
    parts.push_back(text.substr(range.begin, range.size));
  }
  EXPECT_EQ(parts, (std::vector<std::string>{"Hello", "HELLO", "影"}));
  EXPECT_TRUE(MessageSearch::snippet(text, "hello missing").empty());
  EXPECT_TRUE(MessageSearch::snippet(text, "").empty());
  EXPECT_TRUE(MessageSearch::snippet("", "hello").empty());
}

TEST_F(SearchFinding, SnippetsAreWholeCharactersWithoutOverlaps) {
  Vocabulary vocabulary(7);
  for (int i = 0; i < 2000; ++i) {
    const std::string text = vocabulary.text();
    const std::string query = vocabulary.query();
    std::size_t end = 0;
    for (const auto& range : MessageSearch::snippet(text, query)) {
      ASSERT_TRUE(range.size > 0 && range.begin >= end) << text << "\n" << query;
      end = range.begin + range.size;
      ASSERT_LE(end, text.size()) << text << "\n" << query;
      const auto inside = [&](std::size_t at) {
        return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80U;
      };
      if (text.find('\xff') != std::string::npos) continue;  // not valid UTF-8
      ASSERT_FALSE(inside(range.begin) || inside(end)) << text << "\n" << query;
    }
  }
}

}  // namespace

}  // namespace corvan_test
