// Deleting and clearing messages.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

// The statements that set a conversation's newest message after a deletion.
void refresh_latest(Answers& a) {
  if (a.row_or_done(kNewestMessage)) a.run(kPointAtAny);
}

Operation delete_message_by_ids() {
  Operation op("delete_message", Commits::kOneTransaction, "(ids)");
  op.statements = {
      {"DeleteByIds",
       [](CvDbSingleton& s) {
         s.delete_message(std::vector<int64_t>{1, 0, 3, -4, 1});
       },
       {kBegin,
        unread_of_ids("1,3,1"),
        sessions_of_ids("1,3,1"),
        {"delete from t_message where id in(1,3,1)", kByRowId},
        {"update t_session set unread_count=unread_count-1,mention_count=mention_count-1 where session_id=? and session_type=?",
         kBySessionKey},
        kNewestMessage,
        kPointAtAndMove,
        kCommit}},
      {"DeleteByNoIds",
       [](CvDbSingleton& s) { s.delete_message(std::vector<int64_t>{}); },
       {kBegin,
        unread_of_ids("", kEmptyList),
        sessions_of_ids("", kEmptyList),
        {"delete from t_message where id in()", kEmptyList},
        kCommit}},
  };
  op.calls = {
      {"DeleteByIds",
       [](CvDbSingleton& s) {
         return text(s.delete_message(std::vector<int64_t>{1, 3, 63}));
       },
       [](Answers& a) {
         a.begin();
         // Only message 1 of "room" is unread. The rows arrive in the order 1, 3, 63.
         const int unread = a.rows("select session_id,session_type,read_status,is_mention,");
         const int latest = a.rows("select session_id,session_type from t_session where latest_id");
         const bool deleted = a.done("delete from t_message where id in(1,3,63)");
         if (deleted) {
           if (unread >= 1) a.run("update t_session set unread_count=unread_count-1,mention_count");
           if (unread >= 3) a.run("update t_session set unread_count=unread_count-1 where");
           for (int i = 0; i < latest; ++i) refresh_latest(a);
         }
         a.commit();
         return text(deleted);
       },
       {"false"}},
  };
  op.flat = {
      {"DeleteMessagesById",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_message({room.middle.id, room.newest.id}));
         EXPECT_EQ(s.count_in(room), room.messages - 2);
         EXPECT_EQ(s.session(room, "unread_count"), "3");
         EXPECT_NE(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
  };
  return op;
}

Operation delete_message_by_server_uids() {
  Operation op("delete_message", Commits::kSeveral, "(server uids)");
  op.statements = {
      {"DeleteByServerUids",
       [](CvDbSingleton& s) {
         s.delete_message("room", Corvan::CV_GROUP, {"s1", "x"});
       },
       {{"delete from t_message where server_uid in('s1','x')", kByServerUidIndex},
        kNewestMessage,
        kPointAtAndMove}},
      {"DeleteByServerUidsLeavingNone",  // message 3 has the empty uid
       [](CvDbSingleton& s) {
         s.delete_message("room", Corvan::CV_GROUP, {"s1", "", "s2"});
       },
       {{"delete from t_message where server_uid in('s1','','s2')", kByServerUidIndex},
        kNewestMessage,
        kPointAt}},
      {"DeleteByServerUidsRefused",
       [](CvDbSingleton& s) { s.delete_message("room", Corvan::CV_GROUP, {"it's"}); },
       {{"delete from t_message where server_uid in('it's')", kRefused}}},
  };
  op.calls = {
      {"DeleteByUids",
       [](CvDbSingleton& s) {
         return s.delete_message("room", kRoom, {"s1", "p7"}), text("");
       },
       [](Answers& a) {
         if (a.done("delete from t_message where server_uid in('s1','p7')")) refresh_latest(a);
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"DeleteMessagesByServerUid",
       [](FilledStore& s, const Room& room) {
         s.store().delete_message(room.id, room.type, {room.middle.uid, room.newest.uid});
         EXPECT_EQ(s.count_in(room), room.messages - 2);
         EXPECT_NE(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
  };
  return op;
}

Operation clear_message() {
  Operation op("clear_message", Commits::kSeveral);
  op.statements = {
      {"ClearMessage",
       [](CvDbSingleton& s) { s.clear_message("room", Corvan::CV_GROUP, false); },
       {kDeleteOfSession, kPointAt}},
      {"ClearMessageClean",
       [](CvDbSingleton& s) { s.clear_message("room", Corvan::CV_GROUP, true); },
       {kDeleteOfSession, kPointAt, {"VACUUM", kNoPlan}}},
  };
  op.calls = {
      {"ClearMessage",
       [](CvDbSingleton& s) { return text(s.clear_message("peer", kPeer, false)); },
       [](Answers& a) {
         const bool deleted = a.done("delete from t_message where session_id=?");
         a.run(kPointAtAny);
         return text(deleted);
       },
       {"false"}},
      {"ClearMessageClean",
       [](CvDbSingleton& s) { return text(s.clear_message("peer", kPeer, true)); },
       [](Answers& a) {
         a.run("delete from t_message where session_id=?");
         a.run(kPointAtAny);
         return text(a.done("VACUUM"));
       },
       {"false"}},
  };
  op.flat = {
      {"ClearMessage",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message(room.id, room.type, false));
         EXPECT_EQ(s.count_in(room), 0);
         EXPECT_EQ(s.session(room, "latest_id"), "-1");
       },
       {kTiny}},
  };
  op.growing = {
      {"ClearMessageOfTheLargest", kDeleted,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message(room.id, room.type, false));
         EXPECT_EQ(s.count_in(room), 0);
       }},
  };
  return op;
}

Operation clear_message_by_timestamp() {
  Operation op("clear_message_by_timestamp", Commits::kSeveral);
  op.statements = {
      {"ClearByTimestamp",
       [](CvDbSingleton& s) { s.clear_message_by_timestamp(5, false); },
       {{"delete from t_message where sent_time<?", kBySentTime}}},
      {"ClearByTimestampClean",
       [](CvDbSingleton& s) { s.clear_message_by_timestamp(5, true); },
       {{"delete from t_message where sent_time<?", kBySentTime}, {"VACUUM", kNoPlan}}},
  };
  op.calls = {
      {"ClearByTime",
       [](CvDbSingleton& s) { return text(s.clear_message_by_timestamp(1030, false)); },
       [](Answers& a) { return text(a.done("delete from t_message where sent_time<?")); },
       {"false"}},
      {"ClearByTimeClean",
       [](CvDbSingleton& s) { return text(s.clear_message_by_timestamp(1030, true)); },
       [](Answers& a) {
         const char* const clear = "delete from t_message where sent_time<?";
         const bool prepared = a.prepared(clear);
         const bool deleted = a.done(clear);
         if (prepared) a.run("VACUUM");
         return text(deleted);
       },
       {"false"}},
  };
  op.flat = {
      {"ClearMessageByTimestamp",
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_message");
         s.plant("insert into t_message(session_id,sent_time) values('old',1),('old',2),('old',3)");
         EXPECT_TRUE(s.store().clear_message_by_timestamp(kFirstTime, false));
         EXPECT_EQ(s.count("t_message"), before);
         EXPECT_EQ(s.count("t_message where session_id='old'"), 0);
       },
       {kTiny}},
      {"ClearMessageByTimestampWithNoneOlder",
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_message");
         EXPECT_TRUE(s.store().clear_message_by_timestamp(kFirstTime, false));
         EXPECT_EQ(s.count("t_message"), before);
       },
       {kTiny}},
  };
  op.growing = {
      {"ClearMessageByTimestampOfHalf", "the older messages, which it deletes",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message_by_timestamp(room.middle.time, false));
         EXPECT_GT(s.count_in(room), 0);
         EXPECT_EQ(s.count("t_message where sent_time<" + std::to_string(room.middle.time)), 0);
       }},
  };
  return op;
}

Operation delete_messages_of_conversation() {
  Operation op("delete_message", Commits::kOnce, "(conversation)");
  op.statements = {
      {"DeleteOfSession",
       [](CvDbSingleton& s) { s.delete_message("room", 2); },
       {kDeleteOfSession}},
  };
  op.calls = {
      {"DeleteOfConversation",
       [](CvDbSingleton& s) { return text(s.delete_message("peer", 1)); },
       [](Answers& a) { return text(a.done("delete from t_message where session_id=?")); },
       {"false"}},
  };
  op.flat = {
      {"DeleteMessagesOfAConversation",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_message(room.id, int32_t{room.type}));
         EXPECT_EQ(s.count_in(room), 0);
       },
       {kTiny}},
  };
  return op;
}

}  // namespace

Operations operations_of_deleting() {
  return {delete_message_by_ids(), delete_message_by_server_uids(), clear_message(),
          clear_message_by_timestamp(), delete_messages_of_conversation()};
}

}  // namespace corvan_test
