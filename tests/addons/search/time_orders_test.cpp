// The ways in which find() gets to the newest hits: by the numbers of messages that match, and by
// the order of the store's times and ids.

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

struct TimeOrder {
  const char* name;
  const char* time;  // SQL for the time of the message `i`
};

void PrintTo(const TimeOrder& order, std::ostream* out) {
  *out << order.name;
}

constexpr int kInOrder = 6000;

// The word wN is in N messages, spread over all of them.
std::string word(int count) {
  return "case when (i*7919)%" + std::to_string(kInOrder) + "<" + std::to_string(count) +
         " then ' w" + std::to_string(count) + "' else '' end";
}

class TimeOrders : public SearchTest, public testing::WithParamInterface<TimeOrder> {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    std::string text = "'all'";
    for (const int count : {30, 500, 700, 1500, 2400, 2600, 5500}) text += "||" + word(count);
    plant(file(), "with recursive n(i) as (select 1 union all select i+1 from n where i<" +
                      std::to_string(kInOrder) +
                      ") insert into t_message(session_id,session_type,content,sender,sent_time) "
                      "select 'room'||(i%3),1+i%2," +
                      text + ",'u0'||(i%5)," + GetParam().time + " from n");
    build_index();
  }

  void compare_all(MessageSearch* search, const SearchOptions& options,
                   std::size_t most_queries = 100) const {
    const Truth all = truth();
    for (const char* const query :
         {"w30", "w500", "w700", "w1500", "w2400", "w2600", "w5500", "all", "all w700",
          "w5500 w1500", "w2*", "w7*", "w*", "\"all w700\"", "\"w1500 w2400\"", "nowhere",
          "nowhere w5500"}) {
      if (most_queries-- == 0) return;
      EXPECT_EQ(compare(*search, all, query, options), "") << query;
    }
  }
};

TEST_P(TimeOrders, FindsAllInTheirOrder) {
  MessageSearch search(path());
  SearchOptions options;
  options.limit = 60;
  compare_all(&search, options);
  options.limit = 3000;
  compare_all(&search, options);
}

TEST_P(TimeOrders, FindsAllInShortCalls) {
  MessageSearch search(path());
  SearchOptions options;
  options.time_limit = std::chrono::microseconds(1);
  // Without an order of times, each call sorts all messages.
  compare_all(&search, options, GetParam().name == std::string("NotNumbers") ? 1 : 100);
}

TEST_P(TimeOrders, FindsAllWithFilters) {
  MessageSearch search(path());
  SearchOptions options;
  options.limit = 50;
  options.session_id = "room1";
  compare_all(&search, options);
  options.session_types = {Corvan::CV_GROUP};
  options.sender = "u02";
  compare_all(&search, options);
}

// Times change without a word to the index, and some messages are not indexed yet.
TEST_P(TimeOrders, FindsAllAfterTimesHaveChanged) {
  MessageSearch search(path());
  for (const char* const query : {"w500", "w1500", "w5500"}) find_all(search, query);
  plant(file(),
        "update t_message set sent_time=sent_time+5000000 where id%997=0;"
        "update t_message set sent_time=1 where id%1009=0;"
        "delete from t_message where id%1013=0;"
        "insert into t_message(session_id,content,sent_time) "
        "select session_id,content,sent_time+1 from t_message where id%50=0");
  SearchOptions options;
  options.limit = 60;
  compare_all(&search, options);
}

INSTANTIATE_TEST_SUITE_P(
    Times, TimeOrders,
    testing::Values(TimeOrder{"AsIds", "1000000+i*10"}, TimeOrder{"Reversed", "5000000-i*10"},
                    TimeOrder{"Shuffled", "1000000+(i*4007)%6000*10"},
                    TimeOrder{"Equal", "1000000"}, TimeOrder{"Fractions", "1000000+i*10+0.5"},
                    TimeOrder{"ManyEqual", "1000000+i/200"},
                    TimeOrder{"OldPagesLater", "1000000+(i/600%2)*3000000-i*10"},
                    TimeOrder{"NotNumbers",
                              "case when i%1000=7 then null when i%1000=9 then 'soon' else i end"}),
    [](const testing::TestParamInfo<TimeOrder>& order) { return std::string(order.param.name); });

}  // namespace
}  // namespace corvan_test
