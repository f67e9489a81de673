// Findings about messages and sync marks.

#include <string>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, FindsWrongMessages) {
  expect_findings({
      {"update t_message set client_uid=null where id=4", "integer-null", "allowed", "client_uid",
       "null", nullptr, nullptr, Ids{4}},
      {"update t_message set sent_status='x' where id in(1,3)", "column-type", "impossible",
       "sent_status", "text", nullptr, nullptr, Ids{1, 3}},
      {"update t_message set direction=7 where id=5", "code-impossible", "impossible", "direction",
       7, nullptr, nullptr, Ids{5}},
      {"update t_message set is_mention=2 where id=5", "code-impossible", "impossible",
       "is_mention", 2, nullptr, nullptr, Ids{5}},
      {"update t_message set read_status=1<<40 where id=5", "code-impossible", "impossible",
       "read_status", int64_t{1} << 40, nullptr, nullptr, Ids{5}},
      {"insert into t_message(id,session_id,session_type,direction,read_status,sent_time) "
       "values(-4,'room',2,1,1,1600000000000)",
       "id-impossible", "impossible", "id", -4, nullptr, nullptr, Ids{-4}},
      {"update t_message set content=null where id=2", "text-null", "allowed", "content", "null",
       nullptr, nullptr, Ids{2}},
      {"update t_message set sent_status=9 where id=4", "status-unknown", "allowed", "sent_status",
       9, nullptr, nullptr, Ids{4}},
      {"update t_message set server_uid='s1' where id=3", "server-uid-twice", "allowed",
       "server_uid", "s1", nullptr, nullptr, Ids{1, 3}},
      {"update t_message set client_uid=42,sender='me' where id=4", "client-key-twice", "allowed",
       "client_uid", "42 of me", nullptr, nullptr, Ids{4, 5}},
      {"update t_message set sent_time=sent_time/1000,is_mention=0,read_status=1 where id in(1,2);"
       "update t_session set unread_count=1,mention_count=0 where session_id='room'",
       "time-unit", "allowed", "sent_time", Json{{"least", 1700000000}, {"most", 1700000001}},
       nullptr, nullptr, Ids{1, 2}},
      {"update t_message set read_status=0 where id=5", "own-unread", "note", "read_status", 0,
       nullptr, nullptr, Ids{5}},
      {"update t_message set sent_status=1 where id=5", "sending", "note", "sent_status", 1,
       nullptr, nullptr, Ids{5}},
      {"update t_message set sent_status=2 where id=5", "failed", "note", "sent_status", 2, nullptr,
       nullptr, Ids{5}},
      {"update t_message set direction=2 where id=3", "direction-copied", "note", "direction", 2,
       nullptr, nullptr, Ids{3}},
      {"delete from t_session where session_id='u01'", "session-missing", "note", "t_session",
       nullptr, nullptr, nullptr, Ids{4, 5}},
  });
}

TEST_F(VerifyTest, FindsWrongSyncMarks) {
  expect_findings({
      {"insert into t_sync values(null,1700000005000,1700000004000)", "text-null", "allowed",
       "t_sync.user_id of ", "null"},
      {"insert into t_sync values(x'6d65',1700000005000,1700000004000)", "column-type",
       "impossible", "t_sync.user_id of me", "blob"},
      {"insert into t_sync values('me',-1,1700000004000)", "sync-negative", "impossible",
       "t_sync.receive_time of me", -1},
      {"insert into t_sync values('me',1700009999,1700000004000)", "time-unit", "allowed",
       "t_sync.receive_time of me", 1700009999},
      {"insert into t_sync values('me',0,1700000004000)", "sync-behind", "note",
       "t_sync.receive_time of me", 0, kTime + 5000},
      {"insert into t_sync values('me',1700000005000,1700000003999)", "sync-behind", "note",
       "t_sync.sent_time of me", 1700000003999, kTime + 4000},
  });
}

TEST_F(VerifyTest, DuplicateServerUidNamesEachConversation) {
  import_sample();
  plant("update t_message set server_uid='s1' where id in(3,5)");
  const Json rows = finding(verify(1), "server-uid-twice")["rows"];
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["session_id"], "room");
  EXPECT_EQ(rows[0]["messages"], Json({1, 3}));
  EXPECT_EQ(rows[1]["session_id"], "u01");
  EXPECT_EQ(rows[1]["messages"], Json({5}));
}

}  // namespace
}  // namespace corvan_test
