// Several threads use one object: one saves, one searches, one catches up and sweeps, one looks at
// the progress. CORVAN_SEARCH_MILLISECONDS says how long.

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "addons/search/query.h"
#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/bounds.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchStatus;
using std::chrono::microseconds;

class SearchThreads : public SearchTest {
 protected:
  // Runs the pieces of work in threads of their own, again and again until the time is over.
  template <typename... Work>
  void run_together(const Work&... work) {
    const std::chrono::milliseconds time(bound("CORVAN_SEARCH_MILLISECONDS", 1000, 20000));
    std::vector<std::thread> threads;
    const auto repeat = [this](const auto& piece) {
      while (!over_) piece();
    };
    (threads.emplace_back([&] { repeat(work); }), ...);
    std::this_thread::sleep_for(time);
    over_ = true;
    for (std::thread& thread : threads) thread.join();
  }

  // The text of the message with this number, and the query that finds it.
  static std::string text(int64_t number) {
    return "word" + std::to_string(number % 97) + " hello 电影" + std::to_string(number);
  }

  std::atomic<bool> over_{false};
};

// Ids and texts are numbered alike, and texts never change: each hit can be checked by its id.
TEST_F(SearchThreads, OneSavesOneSearchesOneSweeps) {
  MessageSearch search(path());
  std::atomic<int64_t> saved{0};
  int64_t searches = 0;
  int64_t sweeps = 0;
  int64_t looks = 0;
  const auto save_next = [&] {
    const int64_t number = saved + 1;
    if (number > 20000) return std::this_thread::yield();
    if (save({text(number), number}) == number) saved = number;
  };
  const auto search_once = [&] {
    const int64_t known = saved;
    const std::string query = "word" + std::to_string(++searches % 97);
    const Corvan::search::Query rule(query);
    SearchOptions options;
    if (searches % 3 == 0) options.time_limit = microseconds(500);
    if (searches % 5 == 0) options.catch_up = microseconds(500);
    options.limit = 100000;
    const Pages pages = find_all(search, query, options);
    EXPECT_EQ(pages.fault, "");
    int64_t expected = 0;
    for (int64_t number = searches % 97; number <= known; number += 97) expected += number > 0;
    EXPECT_GE(static_cast<int64_t>(pages.hits.size()), expected) << query << " of " << known;
    for (const auto& [time, id] : pages.hits) EXPECT_TRUE(time == id && rule.matches(text(id)));
  };
  run_together(
      save_next, search_once,
      [&] {
        ++sweeps;
        const bool all = sweeps % 4 == 0;
        EXPECT_EQ(search.catch_up(all ? kPlenty : microseconds(300)).status, SearchStatus::kOk);
        EXPECT_EQ(search.sweep(microseconds(300)).status, SearchStatus::kOk);
        EXPECT_EQ(search.changed(1 + saved / 2), SearchStatus::kOk);
      },
      [&] {
        ++looks;
        EXPECT_EQ(search.progress().status, SearchStatus::kOk);
        MessageSearch::snippet(text(looks), "hello 影");
        std::this_thread::sleep_for(microseconds(500));
      });
  EXPECT_GT(saved, 0);
  EXPECT_GT(searches, 0);
  EXPECT_GT(sweeps, 0);
  EXPECT_GT(looks, 0);
  EXPECT_EQ(compare(search, truth(), {"hello", "word5", "影", "word*"}), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), {"hello", "word5", "影", "word*"}), "");
}

// catch_up(), changed() and sweep() from several threads, while messages are edited and deleted.
TEST_F(SearchThreads, ManyWriteTheIndex) {
  save_many(1, 300);
  MessageSearch search(path());
  std::atomic<uint64_t> seed{1};
  const auto maintain = [&] {
    Vocabulary random(++seed);
    const auto id = static_cast<int64_t>(1 + random.below(400));
    switch (random.below(3)) {
      case 0:
        EXPECT_EQ(search.changed(id), SearchStatus::kOk);
        return;
      case 1:
        EXPECT_EQ(search.sweep(microseconds(200)).status, SearchStatus::kOk);
        return;
      default:
        EXPECT_EQ(search.catch_up(microseconds(200)).status, SearchStatus::kOk);
    }
  };
  const auto change = [&] {
    Vocabulary random(++seed);
    const auto id = static_cast<int64_t>(1 + random.below(400));
    the_store().set_message_content(id, random.text(), "");
    if (random.one_in(4)) the_store().delete_message({id});
    if (random.one_in(2)) save({random.text()});
  };
  const auto look = [&] {
    SearchOptions options;
    options.limit = 3;
    EXPECT_EQ(search.find("hello", options).status, SearchStatus::kOk);
  };
  run_together(maintain, maintain, change, look);
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
}

// Objects that write the index at the same time, as two processes would. One may find it locked,
// but none may take the work of the other for damage.
TEST_F(SearchThreads, TwoObjectsWriteOneIndex) {
  save_many(1, 300);
  MessageSearch one(path());
  MessageSearch other(path());
  std::atomic<uint64_t> seed{1};
  const auto maintain = [&seed](MessageSearch& search) {
    Vocabulary random(++seed);
    search.catch_up(microseconds(200));
    search.changed(static_cast<int64_t>(1 + random.below(400)));
    search.sweep(microseconds(random.below(2000)));
  };
  const auto change = [&seed] {
    Vocabulary random(++seed);
    the_store().set_message_content(static_cast<int64_t>(1 + random.below(400)), random.text(), "");
    save({random.text()});
  };
  run_together([&] { maintain(one); }, [&] { maintain(other); }, change);
  for (const std::string& line : log.take()) {
    EXPECT_EQ(line.find("created again"), std::string::npos) << line;
  }
  EXPECT_EQ(mend_all(one), "");
  EXPECT_EQ(compare(one, truth(), few_queries()), "");
}

}  // namespace

}  // namespace corvan_test
