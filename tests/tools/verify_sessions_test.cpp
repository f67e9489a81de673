// Findings about conversations.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, FindsWrongConversations) {
  expect_findings({
      {"update t_session set silence=1.5 where session_id='room'", "column-type", "impossible",
       "silence", "real"},
      {"update t_session set is_top=2 where session_id='room'", "code-impossible", "impossible",
       "is_top", 2},
      {"update t_session set draft=null where session_id='room'", "text-null", "allowed", "draft",
       "null"},
      {"update t_session set unread_count=4 where session_id='room'", "counter-unread", "allowed",
       "unread_count", 4, 3, "counters"},
      {"update t_session set unread_count=9 where session_id='hall'", "counter-unread", "allowed",
       "unread_count", 9, 1, "counters"},
      {"update t_session set unread_count=-3 where session_id='hall'", "counter-negative",
       "allowed", "unread_count", -3, 0, "counters"},
      {"update t_session set mention_count=2 where session_id='room'", "counter-mention", "allowed",
       "mention_count", 2, 1, "counters"},
      {"update t_session set mention_count=-1 where session_id='hall'", "counter-negative",
       "allowed", "mention_count", -1, 0, "counters"},
      {"update t_session set latest_id=77 where session_id='room'", "latest-missing", "allowed",
       "latest_id", 77, 3, "latest"},
      {"update t_session set latest_id=4 where session_id='room'", "latest-foreign", "allowed",
       "latest_id", 4, 3, "latest"},
      {"update t_session set latest_id=1,session_time=1700000000000 where session_id='room'",
       "latest-older", "allowed", "latest_id", 1, 3, "latest"},
      {"update t_session set latest_id=-1 where session_id='room'", "latest-none", "allowed",
       "latest_id", -1, 3, "latest"},
      {"update t_session set session_time=1700000000001 where session_id='room'", "session-time",
       "allowed", "session_time", 1700000000001, kTime + 2000, "times"},
      {"update t_session set read_time=9000000000000,unread_count=0 where session_id='hall'",
       "time-future", "allowed", "read_time", 9000000000000},
      {"update t_session set unread_count=2 where session_id='room'", "counter-low", "note",
       "unread_count", 2, 3, "counters"},
      {"update t_session set mention_count=0 where session_id='room'", "counter-low", "note",
       "mention_count", 0, 1, "counters"},
      {"update t_session set unread_count=1,mention_count=0,read_time=1700000002000 "
       "where session_id='room'",
       "counter-untold", "note", "unread_count", 1, Json{{"least", 0}, {"most", 3}}},
      {"update t_session set session_time=session_time+1 where session_id='room'",
       "session-time-apart", "note", "session_time", kTime + 2001, kTime + 2000, "times"},
      {"update t_session set session_time=session_time-1 where session_id='u01'",
       "session-time-apart", "note", "session_time", kTime + 3999, kTime + 4000, "times"},
      {"delete from t_message where id=6;update t_session set latest_id=-1,unread_count=0 "
       "where session_id='hall'",
       "session-empty", "note", "t_session", nullptr},
  });
}

TEST_F(VerifyTest, FindsSeveralProblemsAtOnce) {
  import_sample();
  const std::string clean = read_file(file());
  const std::vector<std::pair<const char*, Rows>> all = {
      {"drop index t_message_session", {"index-missing"}},
      {"drop index t_message_session;create index t_message_session on t_message(sender)",
       {"index-differs"}},
      {"update t_message set session_type=0 where id=6;update t_session set session_type=0,"
       "unread_count=0 where session_id='hall'",
       {"kind-unknown"}},
      {"create table copy as select * from t_session;drop table t_session;"
       "alter table copy rename to t_session;insert into t_session select * from t_session "
       "where session_id='room'",
       {"table-differs", "index-missing", "row-twice", "not-judged"}},
      // A value of the wrong type hides no finding that does not depend on it.
      {"update t_session set silence=null,unread_count=-9 where session_id='room'",
       {"integer-null", "counter-negative"}},
      {"update t_session set is_top='x',latest_id=0 where session_id='room'",
       {"column-type", "latest-none"}},
      {"update t_message set sent_status='x',direction=5 where id=1;"
       "update t_session set unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "code-impossible", "counter-unread", "latest-none"}},
      {"update t_session set latest_id='x',unread_count=8 where session_id='room'",
       {"column-type", "counter-unread", "not-judged"}},
      {"update t_session set read_time='x',unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "latest-none", "not-judged"}},
      {"update t_message set read_status='x' where id=1;"
       "update t_session set unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "latest-none", "not-judged"}},
      {"create table copy as select * from t_message;drop table t_message;"
       "create table t_message as select id,session_id from copy;drop table copy",
       {"rows-unread", "table-differs", "index-missing"}},
  };
  for (const auto& [sql, expected] : all) {
    SCOPED_TRACE(sql);
    write_file(file(), clean);
    plant(sql);
    Rows found = codes(verify(1));
    Rows sorted = expected;
    std::sort(found.begin(), found.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(found, sorted);
  }
}

TEST_F(VerifyTest, OlderLatestMessageKeepsCorrectTime) {
  import_sample();
  plant("update t_session set latest_id=1 where session_id='room'");
  EXPECT_EQ(codes(verify(1)), Rows{"latest-older"});
  EXPECT_EQ(changes(repair("times")), Rows{});
  plant("update t_session set session_time=session_time-500 where session_id='room'");
  EXPECT_EQ(finding(verify(1), "session-time")["rows"][0]["derived"], kTime + 2000);
  const Rows expected = {"latest room latest_id 1 -> 3",
                         "latest room session_time 1700000001500 -> 1700000002000"};
  EXPECT_EQ(changes(repair("times,latest")), expected);
}

TEST_F(VerifyTest, RepairKeepsDraftTime) {
  import_sample();
  plant(
      "update t_session set draft='x',session_time=1700000009000,latest_id=0 "
      "where session_id='room'");
  EXPECT_EQ(changes(repair(kAll)), Rows{"latest room latest_id 0 -> 3"});
  EXPECT_EQ(codes(verify(0)), Rows{});
}

}  // namespace
}  // namespace corvan_test
