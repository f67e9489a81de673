// What the header of MessageSearch promises, sentence by sentence.

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchPlace;
using Corvan::SearchProgress;
using Corvan::SearchResults;
using Corvan::SearchStatus;
using Corvan::SearchWork;
using std::chrono::microseconds;

class SearchContract : public SearchTest {
 protected:
  // The ids that a search finds, from the newest to the oldest.
  static std::vector<int64_t> ids(MessageSearch& search, const std::string& query,
                                  const SearchOptions& options = SearchOptions()) {
    std::vector<int64_t> ids;
    for (const auto& hit : search.find(query, options).hits) ids.push_back(hit.id);
    return ids;
  }
  using Found = std::vector<int64_t>;
};

// ---- Statuses -----------------------------------------------------------------------------------

TEST_F(SearchContract, EachStatusHasAText) {
  std::set<std::string> texts;
  for (int32_t status = 0; status <= 5; ++status) {
    texts.insert(to_text(static_cast<SearchStatus>(status)));
  }
  EXPECT_EQ(texts.size(), 6U);
  EXPECT_EQ(texts.count(""), 0U);
  EXPECT_NE(to_text(static_cast<SearchStatus>(99)), nullptr);
}

TEST_F(SearchContract, FolderWithoutStore) {
  const TemporaryFolder empty;
  for (const std::string& place : {empty.path(), empty.path() + "missing/"}) {
    MessageSearch search{cvrtc::Pathname(place)};
    EXPECT_EQ(search.open(), SearchStatus::kNoStore);
    EXPECT_EQ(search.find("hello").status, SearchStatus::kNoStore);
    EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kNoStore);
    EXPECT_FALSE(search.catch_up(kPlenty).complete);
    EXPECT_EQ(search.changed(1), SearchStatus::kNoStore);
    EXPECT_EQ(search.sweep(kPlenty).status, SearchStatus::kNoStore);
    EXPECT_EQ(search.progress().status, SearchStatus::kNoStore);
  }
  EXPECT_TRUE(fs::is_empty(empty.path()));
}

TEST_F(SearchContract, StoreThatIsNotADatabase) {
  SKIP_IF_ENCRYPTED("the add-on for encryption refuses the file");
  const TemporaryFolder other;
  const std::string bytes(10000, 'x');
  write_file(other.file("corvan"), bytes);
  MessageSearch search{cvrtc::Pathname(other.path())};
  const SearchStatus status = search.find("hello").status;
  EXPECT_TRUE(status == SearchStatus::kNoStore || status == SearchStatus::kStoreError);
  EXPECT_EQ(read_file(other.file("corvan")), bytes);
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, LockedStoreIsAStoreError) {
  the_store().execute_none_query("pragma locking_mode=exclusive");
  ASSERT_GT(save({}), 0);
  {
    MessageSearch search(path());
    // A store that is locked cannot be unlocked with a key.
    const auto status = stores_are_encrypted() ? SearchStatus::kNoStore : SearchStatus::kStoreError;
    EXPECT_EQ(search.find("hello").status, status);
    EXPECT_EQ(search.catch_up(kPlenty).status, status);
    the_store().execute_none_query("pragma locking_mode=normal");
    ASSERT_GT(save({}), 0);
    EXPECT_EQ(search.find("hello").hits.size(), 2U);
  }
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, FailuresAreLogged) {
  const TemporaryFolder empty;
  MessageSearch search{cvrtc::Pathname(empty.path())};
  EXPECT_EQ(log.take(), Rows{});  // the constructor opens nothing
  search.open();
  EXPECT_EQ(log.take().size(), 1U);
  search.find("hello");
  EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(SearchContract, StoreMayBeCreatedAfterTheObject) {
  const TemporaryFolder later;
  MessageSearch search{cvrtc::Pathname(later.path())};
  EXPECT_EQ(search.find("hello").status, SearchStatus::kNoStore);
  close();
  ASSERT_TRUE(open_store_in(later.path()));
  const int64_t id = save({});
  EXPECT_EQ(ids(search, "hello"), Found{id});
  EXPECT_EQ(catch_up_all(search), "");
  close();
}

TEST_F(SearchContract, OnlyTheFolderOfThePathCounts) {
  const int64_t id = save({});
  MessageSearch search{cvrtc::Pathname(folder.path() + "anything.db")};
  EXPECT_EQ(ids(search, "hello"), Found{id});
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_TRUE(file_exists(index()));
}

// ---- Finding ------------------------------------------------------------------------------------

TEST_F(SearchContract, FindsWithAndWithoutAnIndex) {
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

TEST_F(SearchContract, BadQueriesAndLimits) {
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

TEST_F(SearchContract, EmptyRangeOfTimesFindsNothing) {
  save({});
  MessageSearch search(path());
  SearchOptions options;
  options.from_time = 200;
  options.to_time = 100;
  const SearchResults results = search.find("hello", options);
  EXPECT_TRUE(results.status == SearchStatus::kOk || results.status == SearchStatus::kBadQuery);
  EXPECT_TRUE(results.hits.empty() && !results.next);
}

TEST_F(SearchContract, HitsHaveTheirTimesAndOrder) {
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

TEST_F(SearchContract, EachOptionLimitsTheResults) {
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

TEST_F(SearchContract, ExtremeTimesAndPlaces) {
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

TEST_F(SearchContract, TextsOfAnyKind) {
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

TEST_F(SearchContract, LongTexts) {
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

TEST_F(SearchContract, LongQueries) {
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

TEST_F(SearchContract, TooLongQueries) {
  save({"hello"});
  MessageSearch search(path());
  const std::string longest = "hello" + std::string(MessageSearch::kLongestQuery - 5, ' ');
  EXPECT_EQ(search.find(longest).status, SearchStatus::kOk);
  EXPECT_EQ(search.find(longest).hits.size(), 1U);
  EXPECT_EQ(search.find(longest + ' ').status, SearchStatus::kBadQuery);
  EXPECT_EQ(MessageSearch::snippet("hello", longest).size(), 1U);
  EXPECT_EQ(MessageSearch::snippet("hello", longest + ' ').size(), 0U);
}

TEST_F(SearchContract, TextsOfTheQueryAreNotSyntax) {
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

TEST_F(SearchContract, SavedMessageIsFoundAtOnce) {
  MessageSearch search(path());
  ASSERT_EQ(search.open(), SearchStatus::kOk);
  for (int i = 0; i < 300; ++i) {
    const int64_t id = save({"number" + std::to_string(i)});
    ASSERT_EQ(ids(search, "number" + std::to_string(i)), Found{id});
    if (i % 7 != 0) continue;
    ASSERT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchContract, UncommittedMessageIsNotFound) {
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

TEST_F(SearchContract, DeletedMessageIsNotFound) {
  const int64_t first = save({});
  const int64_t second = save({});
  MessageSearch search(path());
  EXPECT_EQ(catch_up_all(search), "");
  ASSERT_TRUE(the_store().delete_message({second}));
  EXPECT_EQ(ids(search, "hello"), Found{first});
  EXPECT_EQ(search.changed(second), SearchStatus::kOk);
  EXPECT_EQ(ids(search, "hello"), Found{first});
}

TEST_F(SearchContract, EditedMessageIsFoundByItsPresentWords) {
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

TEST_F(SearchContract, ChangedOfUnknownIds) {
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

// ---- Budgets ------------------------------------------------------------------------------------

TEST_F(SearchContract, EachCallOfFindGetsFurtherHoweverShortTheTimeIs) {
  save_many(3, 600);
  MessageSearch search(path());
  SearchOptions options;
  options.time_limit = microseconds(1);
  for (int i = 0; i < 2; ++i) {
    for (const char* const query : {"hello", "nothing-has-this", "he*"}) {
      const Pages pages = find_all(search, query, options);
      EXPECT_EQ(pages.fault, "");
      EXPECT_EQ(pages.hits, truth().hits(query)) << query;
    }
    EXPECT_EQ(catch_up_all(search), "");
  }
}

TEST_F(SearchContract, FindReturnsAfterItsTimeLimit) {
  plant(file(),
        "with recursive n(i) as (select 1 union all select i+1 from n where i<30000) "
        "insert into t_message(session_id,session_type,content,sent_time) "
        "select 'room',2,'some words of a message '||i,i from n");
  MessageSearch search(path());
  ASSERT_EQ(search.open(), SearchStatus::kOk);
  SearchOptions options;
  options.time_limit = microseconds(2000);
  const auto start = std::chrono::steady_clock::now();
  const SearchResults results = search.find("nothing", options);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(results.status, SearchStatus::kOk);
  EXPECT_TRUE(results.next);
  EXPECT_LT(took, std::chrono::milliseconds(500));  // the machine may be busy
}

TEST_F(SearchContract, ExtremeBudgets) {
  save_many(3, 100);
  MessageSearch search(path());
  for (const microseconds budget : {microseconds::min(), microseconds::max()}) {
    EXPECT_EQ(search.sweep(budget).status, SearchStatus::kOk);
    EXPECT_EQ(search.catch_up(budget).status, SearchStatus::kOk);
    SearchOptions options;
    options.time_limit = budget;
    options.catch_up = budget;
    EXPECT_EQ(compare(search, truth(), "hello", options), "");
  }
  EXPECT_EQ(search.progress().waiting, 0);
}

TEST_F(SearchContract, CatchUpIndexesAtLeastOneBatch) {
  save_many(3, 400);
  MessageSearch search(path());
  SearchWork work;
  int64_t indexed = 0;
  for (int calls = 0; !work.complete; ++calls) {
    ASSERT_LT(calls, 401);
    work = search.catch_up(microseconds(0));
    ASSERT_EQ(work.status, SearchStatus::kOk);
    ASSERT_TRUE(work.messages > 0 || work.complete);
    indexed += work.messages;
  }
  EXPECT_EQ(indexed, 400);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  work = search.catch_up(microseconds(0));
  EXPECT_TRUE(work.complete);
  EXPECT_EQ(work.messages, 0);
}

TEST_F(SearchContract, SweepGoesOnWhereItEndedAlsoInAnotherObject) {
  plant(file(),
        "with recursive n(i) as (select 1 union all select i+1 from n where i<3000) "
        "insert into t_message(session_id,session_type,content,sent_time) "
        "select 'room',2,'before '||i,i from n");
  build_index();
  plant(file(), "update t_message set content='after '||id where id<=2000");
  int64_t messages = 0;
  int64_t mended = 0;
  bool complete = false;
  for (int calls = 0; !complete; ++calls) {
    ASSERT_LT(calls, 3001);
    MessageSearch search(path());
    const SearchWork work = search.sweep(microseconds(0));
    ASSERT_EQ(work.status, SearchStatus::kOk);
    messages += work.messages;
    mended += work.mended;
    complete = work.complete;
  }
  EXPECT_EQ(messages, 3000);
  EXPECT_EQ(mended, 2000);
  MessageSearch search(path());
  SearchOptions all;
  all.limit = 5000;
  EXPECT_EQ(search.find("after", all).hits.size(), 2000U);
  EXPECT_EQ(search.sweep(kPlenty).mended, 0);
}

TEST_F(SearchContract, FindCatchesUpFirstIfAsked) {
  const int64_t id = save({});
  MessageSearch search(path());
  EXPECT_EQ(search.progress().waiting, 1);
  SearchOptions options;
  options.catch_up = kPlenty;
  EXPECT_EQ(ids(search, "hello", options), Found{id});
  EXPECT_EQ(search.progress().waiting, 0);
}

TEST_F(SearchContract, ProgressOfTheIndex) {
  MessageSearch search(path());
  SearchProgress progress = search.progress();
  EXPECT_EQ(progress.status, SearchStatus::kOk);
  EXPECT_EQ(progress.indexed + progress.waiting, 0);
  EXPECT_FALSE(progress.is_swept);
  save_many(1, 50);
  progress = search.progress();
  EXPECT_EQ(progress.indexed, 0);
  EXPECT_EQ(progress.waiting, 50);
  EXPECT_EQ(catch_up_all(search), "");
  progress = search.progress();
  EXPECT_EQ(progress.indexed, 50);
  EXPECT_EQ(progress.waiting, 0);
  EXPECT_FALSE(progress.is_swept);
  EXPECT_EQ(sweep_to_end(search), "");
  EXPECT_TRUE(search.progress().is_swept);
  EXPECT_TRUE(MessageSearch(path()).progress().is_swept);
  ASSERT_TRUE(the_store().delete_message({1, 2, 50}));
  progress = search.progress();
  EXPECT_EQ(progress.indexed, 50);
  EXPECT_EQ(progress.waiting, 0);
}

// ---- The life of the files ----------------------------------------------------------------------

TEST_F(SearchContract, WhatIsIndexedStaysSo) {
  save_many(1, 50);
  { EXPECT_EQ(catch_up_all(*std::make_unique<MessageSearch>(path())), ""); }
  MessageSearch search(path());
  EXPECT_EQ(search.progress().indexed, 50);
  EXPECT_EQ(search.catch_up(kPlenty).messages, 0);
}

TEST_F(SearchContract, StoreIsNotChanged) {
  save_many(1, 100);
  close();
  const std::string bytes = read_file(file());
  build_index();
  {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }
  EXPECT_TRUE(read_file(file()) == bytes);
}

TEST_F(SearchContract, RemoveDeletesTheIndexAndNothingElse) {
  save_many(1, 50);
  EXPECT_TRUE(MessageSearch::remove(path()));
  build_index();
  close();
  const FileSet store = {{"corvan", read_file(file())}};
  EXPECT_TRUE(file_exists(index()));
  EXPECT_TRUE(MessageSearch::remove(path()));
  EXPECT_TRUE(index_files().empty());
  EXPECT_FALSE(file_exists(index() + "-shm"));
  EXPECT_EQ(read_file(file()), store.at("corvan"));
  EXPECT_TRUE(MessageSearch::remove(cvrtc::Pathname(folder.path() + "missing/")));
  ASSERT_TRUE(open());
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(search.progress().waiting, 50);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(SearchContract, RemoveThatFailsSaysSo) {
  ASSERT_TRUE(fs::create_directory(index()));
  write_file(index() + "/file", "x");
  EXPECT_FALSE(MessageSearch::remove(path()));
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_TRUE(file_exists(index() + "/file"));
}

TEST_F(SearchContract, IndexRemovedUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  replace_files(folder.path(), "corvan-search", {});
  save_many(2, 100);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  search.catch_up(kPlenty);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  MessageSearch other(path());
  EXPECT_EQ(mend_all(other), "");
  EXPECT_EQ(compare(other, truth(), few_queries()), "");
}

TEST_F(SearchContract, StoreDeletedAndCreatedAnewUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  close();
  for (const char* const end : {"", "-wal", "-shm"}) fs::remove(file() + end);
  ASSERT_TRUE(open());
  save_many(2, 60);
  EXPECT_EQ(compare(search, truth(), few_queries(), truth().ids()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, StoreReplacedByAnotherUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  close();
  const TemporaryFolder other;
  ASSERT_TRUE(open_store_in(other.path()));
  save_many(2, 150);
  close();
  for (const char* const end : {"-wal", "-shm"}) fs::remove(file() + end);
  fs::rename(other.file("corvan"), file());
  ASSERT_TRUE(open());
  EXPECT_EQ(compare(search, truth(), few_queries(), truth().ids()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, StoreWithoutTables) {
  const TemporaryFolder other;
  plant(other.file("corvan"), "create table other(a)");
  MessageSearch search{cvrtc::Pathname(other.path())};
  const SearchResults results = search.find("hello");
  EXPECT_NE(results.status, SearchStatus::kOk);
  EXPECT_NE(results.status, SearchStatus::kIndexError);
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, VacuumOfTheStore) {
  save_many(1, 200);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  ASSERT_TRUE(the_store().clear_message("room1", Corvan::CV_GROUP, true));
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
  save_many(2, 100);
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, OlderStoreWithoutIndexes) {
  SKIP_IF_ENCRYPTED("covered in plain text");
  save_many(1, 100);
  const Rows names = rows(file(), "select name from sqlite_master where type='index' and sql<>''");
  for (const std::string& name : names) plant(file(), "drop index " + name);
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
  SearchOptions options;
  options.session_id = "room1";
  options.limit = 3;
  EXPECT_EQ(compare(search, truth(), "hello", options), "");
}

TEST_F(SearchContract, AllMembersWorkWhileTheStoreIsInATransaction) {
  save_many(1, 100);
  MessageSearch search(path());
  ASSERT_TRUE(the_store().start_transaction());
  save({"pending hello"});
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(search.changed(5), SearchStatus::kOk);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(search.progress().status, SearchStatus::kOk);
  ASSERT_TRUE(the_store().commit_transaction());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
}

// The search must not keep the store's log from being emptied.
TEST_F(SearchContract, IdleSearchHoldsNoSnapshotOfTheStore) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  EXPECT_FALSE(search.find("hello").hits.empty());
  EXPECT_EQ(search.progress().status, SearchStatus::kOk);
  EXPECT_EQ(rows(file(), "pragma wal_checkpoint(truncate)").front().front(), '0');
  EXPECT_EQ(fs::file_size(file() + "-wal"), 0U);
}

// More messages than one part of the index has.
TEST_F(SearchContract, LargeStore) {
  constexpr int64_t kCount = 140000;
  plant(file(), "with recursive n(i) as (select 1 union all select i+1 from n where i<" +
                    std::to_string(kCount) +
                    ") insert into t_message(session_id,session_type,content,sent_time) "
                    "select 'room',2,'n'||(i/64)||' 天'||case i%1000 when 7 then ' seven' else '' "
                    "end,i/2 from n");
  MessageSearch search(path());
  ASSERT_EQ(catch_up_all(search), "");
  const std::vector<std::string> queries = {"seven", "n2047", "n2048", "n1 seven", "\"n2100 天\""};
  const Truth before = truth();
  EXPECT_EQ(compare(search, before, queries), "");
  Corvan::SearchOptions pages;
  pages.limit = 50;
  EXPECT_EQ(compare(search, before, "seven", pages), "");
  EXPECT_EQ(search.progress().waiting, 0);
  EXPECT_EQ(search.progress().indexed, kCount);
  plant(file(), "update t_message set content='edited seven' where id%20011=0");
  plant(file(), "delete from t_message where id%20011=1 or id between 131000 and 131100");
  EXPECT_EQ(sweep_to_end(search), "");
  EXPECT_EQ(compare(search, truth(), {"seven", "n2047", "n2048", "edited"}), "");
  EXPECT_EQ(search.sweep(kPlenty).mended, 0);
}

// ---- snippet() ----------------------------------------------------------------------------------

TEST_F(SearchContract, SnippetGivesTheMatchesInOrder) {
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

TEST_F(SearchContract, SnippetsAreWholeCharactersWithoutOverlaps) {
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
