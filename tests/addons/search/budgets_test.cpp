// Calls with little time, and the progress that they report.

#include <chrono>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchProgress;
using Corvan::SearchResults;
using Corvan::SearchStatus;
using Corvan::SearchWork;
using std::chrono::microseconds;

class SearchBudgets : public SearchTest {};

TEST_F(SearchBudgets, EachCallOfFindGetsFurtherHoweverShortTheTimeIs) {
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

TEST_F(SearchBudgets, FindReturnsAfterItsTimeLimit) {
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

TEST_F(SearchBudgets, ExtremeBudgets) {
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

TEST_F(SearchBudgets, CatchUpIndexesAtLeastOneBatch) {
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

TEST_F(SearchBudgets, SweepGoesOnWhereItEndedAlsoInAnotherObject) {
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

// Messages are edited, unannounced, before each step of a sweep that builds their part anew.
TEST_F(SearchBudgets, SweepKeepsTheIndexWhenMessagesChangeWhileItBuilds) {
  save_many(1, 1200);
  MessageSearch search(path());
  bool complete = false;
  for (int steps = 0; !complete; ++steps) {
    ASSERT_EQ(mend_all(search), "");
    the_store().set_message_content(1, "first " + std::to_string(steps), "");
    ASSERT_EQ(search.changed(1), SearchStatus::kOk);
    for (int i = 0; i < steps && !complete; ++i) complete = search.sweep(microseconds(0)).complete;
    the_store().set_message_content(900, "middle " + std::to_string(steps), "");
    the_store().set_message_content(1199, "last " + std::to_string(steps), "");
    ASSERT_EQ(mend_all(search), "");
    ASSERT_EQ(compare(search, truth(), few_queries()), "") << steps;
    ASSERT_EQ(search.progress().indexed, 1200) << steps;
    ASSERT_TRUE(log.take().empty()) << steps;
  }
}

TEST_F(SearchBudgets, FindCatchesUpFirstIfAsked) {
  const int64_t id = save({});
  MessageSearch search(path());
  EXPECT_EQ(search.progress().waiting, 1);
  SearchOptions options;
  options.catch_up = kPlenty;
  EXPECT_EQ(ids(search, "hello", options), Found{id});
  EXPECT_EQ(search.progress().waiting, 0);
}

TEST_F(SearchBudgets, ProgressOfTheIndex) {
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

}  // namespace

}  // namespace corvan_test
