// The tables of the index: what docs/search.md says about the file's format.

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;

class SearchIndexFormat : public SearchTest {
 protected:
  // Saves messages until there are `count`, the same ones in each test.
  void save_up_to(int64_t count) const {
    plant(file(),
          "with recursive n(i) as (select coalesce(max(id),0)+1 from t_message "
          "union all select i+1 from n where i<" +
              std::to_string(count) +
              ") insert into t_message(session_id,session_type,content,sent_time) "
              "select 'room',2,'message '||i||' 天气'||i%7,i from n");
  }

  // The same, but catches up after each `step` messages.
  void index_up_to(int64_t count, int64_t step) const {
    MessageSearch search(path());
    for (int64_t saved = 0; saved < count;) {
      saved = std::min(saved + step, count);
      save_up_to(saved);
      ASSERT_EQ(catch_up_all(search), "");
    }
  }

  std::string only_row(const std::string& sql) const { return rows(index(), sql).at(0); }
};

TEST_F(SearchIndexFormat, IndexOfAnotherFormatIsBuiltAnew) {
  index_up_to(100, 100);
  ASSERT_EQ(only_row("pragma user_version"), "2");
  for (const char* const version : {"0", "1", "3"}) {
    plant(index(), std::string("pragma user_version=") + version);
    MessageSearch search(path());
    EXPECT_EQ(search.open(), SearchStatus::kOk);
    EXPECT_EQ(search.progress().waiting, 100) << version;
    EXPECT_EQ(search.catch_up(kPlenty).messages, 100) << version;
    EXPECT_EQ(compare(search, truth(), {"message", "天气", "42"}), "") << version;
    EXPECT_EQ(only_row("pragma user_version"), "2");
  }
}

// A search looks each token up in every segment.
TEST_F(SearchIndexFormat, ShortTransactionsLeaveFewSegments) {
  index_up_to(300, 1);
  EXPECT_LE(std::stoi(only_row("select count(distinct segid) from shard_1_idx")), 20);
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), {"message", "天气", "42"}), "");
}

// However the rows have grown.
TEST_F(SearchIndexFormat, FourRowsOfFingerprintsFillAPage) {
  if (sqlite3_compileoption_used("ENABLE_DBSTAT_VTAB") == 0) GTEST_SKIP() << "SQLite has no dbstat";
  for (const int64_t step : {9, 200, 5000}) {
    ASSERT_TRUE(MessageSearch::remove(path()));
    plant(file(), "delete from t_message; delete from sqlite_sequence");
    index_up_to(4096, step);
    EXPECT_EQ(only_row("select count(*) from dbstat where name='fingerprint' and pagetype='leaf'"),
              "5")
        << step;
  }
}

}  // namespace

}  // namespace corvan_test
