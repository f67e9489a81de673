// Queries with many candidates and few hits, which find() searches for in blocks of about 1,024
// messages: in stores whose ids and times are in almost the same order, in quite different ones,
// and in orders that change.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "addons/search/message_search.h"
#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/truth.h"
#include "tests/support/rows.h"

namespace corvan_test {
namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;

struct Order {
  const char* name;
  const char* time;  // SQL for the time of the message `i`
};

void PrintTo(const Order& order, std::ostream* out) {
  *out << order.name;
}

constexpr int kMessages = 12'000;

class TimeBlocks : public SearchTest, public testing::WithParamInterface<Order> {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    insert(1, kMessages);
    build_index();
  }

  // One of 40 messages has both words, one of 400 has the phrase.
  void insert(int first, int last) const {
    const std::string insert_all =
        "with recursive n(i) as (select " + std::to_string(first) +
        " union all select i+1 from n where i<" + std::to_string(last) +
        ") insert into t_message(session_id,session_type,content,sender,sent_time) "
        "select 'room'||(i%3),2,case when i%400=7 then 'a rare gem' "
        "when i%40=7 then 'a gem so rare' else 'nothing' end,'u0'||(i%5)," +
        GetParam().time + " from n";
    plant(file(), insert_all);
  }

  static void expect_all(MessageSearch* search, const Truth& all,
                         const SearchOptions& options = SearchOptions()) {
    for (const char* const query :
         {"\"rare gem\"", "rare", "gem nowhere", "\"rare gem\" nothing"}) {
      EXPECT_EQ(compare(*search, all, query, options), "") << query;
    }
  }
};

TEST_P(TimeBlocks, FindsAll) {
  MessageSearch search(path());
  const Truth all = truth();
  SearchOptions options;
  expect_all(&search, all);
  for (const int limit : {1, 7, 5000}) {
    options.limit = limit;
    expect_all(&search, all, options);
  }
}

TEST_P(TimeBlocks, FindsAllWithFilters) {
  MessageSearch search(path());
  const Truth all = truth();
  SearchOptions options;
  options.sender = "u02";
  expect_all(&search, all, options);
  options.sender.reset();
  options.session_id = "room1";
  expect_all(&search, all, options);
  options.session_id.reset();
  options.from_time = 21'000;
  options.to_time = 93'000;
  expect_all(&search, all, options);
}

// Ids that were read in two ways are looked at once.
TEST_P(TimeBlocks, FindsAllFromAnyTimeOn) {
  const Truth all = truth();
  SearchOptions options;
  for (options.to_time = 39'000; options.to_time < 48'000; options.to_time += 300) {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, all, "\"rare gem\"", options), "") << options.to_time;
  }
}

TEST_P(TimeBlocks, FindsAllInShortCalls) {
  MessageSearch search(path());
  SearchOptions options;
  for (const int limit : {1, 300}) {
    options.time_limit = std::chrono::microseconds(limit);
    expect_all(&search, truth(), options);
  }
}

// The order of the times is read once, and again after each change of the store.
TEST_P(TimeBlocks, FindsAllAfterEachChange) {
  MessageSearch search(path());
  for (const char* const change :
       {"update t_message set sent_time=sent_time+60000 where id%400=7 and id<2000",
        "update t_message set sent_time=sent_time-40000 where id%400=7 and id>9000",
        "update t_message set sent_time=50000 where id%800=7", "delete from t_message where id%3=0",
        "update t_message set sent_time=-sent_time where id%7=0"}) {
    expect_all(&search, truth());
    plant(file(), change);
    SCOPED_TRACE(change);
    expect_all(&search, truth());
  }
}

TEST_P(TimeBlocks, FindsWhatIsNotIndexed) {
  MessageSearch search(path());
  expect_all(&search, truth());
  insert(kMessages + 1, kMessages + 900);
  plant(
      file(),
      "insert into t_message(id,session_id,content,sent_time) values(-5,'room','a rare gem',33333);"
      "update t_message set sent_time=44444 where id=12007");
  expect_all(&search, truth());
}

INSTANTIATE_TEST_SUITE_P(
    Orders, TimeBlocks,
    testing::Values(Order{"AsIds", "i*10"}, Order{"NeighboursSwapped", "((i/64)*64+63-i%64)*10"},
                    Order{"PagesSwapped", "((i/700)*1400+700-i)*10"},
                    Order{"SomeMisplaced", "case i%97 when 0 then i*7919%12000 else i end*10"},
                    Order{"SomeHitsMisplaced", "case i%400 when 7 then 12000-i else i end*10"},
                    Order{"OldestLast", "case when i>8000 then i-8000 else i+4000 end*10"},
                    Order{"Pairs", "i/2*20"}, Order{"ManyEqual", "i/3000*30000"}),
    [](const testing::TestParamInfo<Order>& order) { return std::string(order.param.name); });

}  // namespace
}  // namespace corvan_test
