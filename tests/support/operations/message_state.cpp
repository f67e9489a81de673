// Message state.

#include <cstdint>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

// Runs `before`, then a receipt that covers no message but moves the receipt time.
OnFilledStore covers_nothing(const std::string& before) {
  return [=](FilledStore& s, const Room& room) {
    if (!before.empty()) s.plant(before);
    const int covered = s.count_in(room, "sent_status=3");
    EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, room.newest.time));
    EXPECT_EQ(s.count_in(room, "sent_status=3"), covered);
    EXPECT_EQ(s.session(room, "receipt_time"), std::to_string(room.newest.time));
  };
}

Operation set_send_time() {
  Operation op("set_send_time", Commits::kOneTransaction);
  op.statements = {
      {"SetSendTimeAccepted",
       [](CvDbSingleton& s) { s.set_send_time(2, 999, "u", "room", Corvan::CV_GROUP, 0); },
       {kBegin,
        kComplete,
        kReadSession,
        {"update t_session set session_time=?,latest_id=? where session_id=? and session_type=?",
         kBySessionKey},
        kCommit}},
      {"SetSendTimeOlder",
       [](CvDbSingleton& s) { s.set_send_time(2, 1, "", "room", Corvan::CV_GROUP, 0); },
       {kBegin,
        {"update t_message set sent_status=0,sent_time=? where id=?", kByRowId},
        kReadSession,
        kCommit}},
      {"SetSendTimeFailedWithoutTime",
       [](CvDbSingleton& s) { s.set_send_time(2, 0, "", "room", Corvan::CV_GROUP, 7); },
       {kBegin, {"update t_message set sent_status=2 where id=?", kByRowId}, kCommit}},
  };
  op.calls = {
      {"SetSendTime",
       [](CvDbSingleton& s) { return s.set_send_time(3, 999, "n1", "room", kRoom, 0), text(""); },
       [](Answers& a) {
         a.begin();
         if (a.done("update t_message set sent_status=0,server_uid=?,sent_time=?")) {
           a.run(kReadSession);
           a.run("update t_session set session_time=?,latest_id=?");
         }
         a.commit();
         return text("");
       },
       {""}},
      {"SetSendTimeOlder",
       [](CvDbSingleton& s) { return s.set_send_time(3, 7, "", "room", kRoom, 1), text(""); },
       [](Answers& a) {
         a.begin();
         if (a.done("update t_message set sent_status=2,sent_time=?") && !a.row(kReadSession)) {
           a.run("update t_session set session_time=?,latest_id=?");
         }
         a.commit();
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"SetSendTime",
       [](FilledStore& s, const Room& room) {
         s.store().set_send_time(room.middle.id, kAfterAll, "named", room.id, room.type, 0);
         EXPECT_EQ(s.message(room.middle.id, "sent_status,server_uid,sent_time"), "0|named|900000");
         EXPECT_EQ(s.session(room, "session_time"), "900000");
       }},
  };
  return op;
}

Operation update_sent_status() {
  Operation op("update_sent_status", Commits::kOnce);
  op.statements = {
      {"UpdateSentStatus",
       [](CvDbSingleton& s) { s.update_sent_status(2, 1); },
       {{"update t_message set sent_status=? where id=?", kByRowId}}},
  };
  op.calls = {
      {"UpdateSentStatus",
       [](CvDbSingleton& s) { return text(s.update_sent_status(2, 3)); },
       [](Answers& a) { return text(a.done("update t_message set sent_status=?")); },
       {"false"}},
  };
  op.flat = {
      {"UpdateSentStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().update_sent_status(room.middle.id, 2));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
  };
  return op;
}

Operation set_read_status() {
  Operation op("set_read_status", Commits::kOneTransaction);
  op.statements = {
      {"SetReadStatusRead",
       [](CvDbSingleton& s) { s.set_read_status(1, 1); },
       {kBegin,
        kMessageState,
        {"update t_message set read_status=?,is_mention=0 where id=?", kByRowId},
        {"update t_session set unread_count=unread_count-1,mention_count=mention_count-1 where session_id=? and session_type=?",
         kBySessionKey},
        kCommit}},
      {"SetReadStatusUnread",
       [](CvDbSingleton& s) { s.set_read_status(2, 0); },
       {kBegin,
        kMessageState,
        {"update t_message set read_status=?,is_mention=0 where id=?", kByRowId},
        {"update t_session set unread_count=unread_count+1 where session_id=? and session_type=?",
         kBySessionKey},
        kCommit}},
      {"SetReadStatusNoChange",
       [](CvDbSingleton& s) { s.set_read_status(2, 3); },
       {kBegin,
        kMessageState,
        {"update t_message set read_status=?,is_mention=0 where id=?", kByRowId},
        kCommit}},
      {"SetReadStatusUnknown",
       [](CvDbSingleton& s) { s.set_read_status(99, 1); },
       {kBegin, kMessageState, kCommit}},
  };
  op.calls = {
      {"SetRead",
       [](CvDbSingleton& s) { return text(s.set_read_status(1, 1)); },
       [](Answers& a) {
         a.begin();
         const bool set =
             a.row("select session_id,session_type,read_status,is_mention,sent_time") &&
             a.done("update t_message set read_status=?");
         if (set) a.run("update t_session set unread_count=unread_count-1,mention_count=");
         a.commit();
         return text(set);
       },
       {"false"}},
      {"SetUnread",
       [](CvDbSingleton& s) { return text(s.set_read_status(2, 0)); },
       [](Answers& a) {
         a.begin();
         const bool set =
             a.row("select session_id,session_type,read_status,is_mention,sent_time") &&
             a.done("update t_message set read_status=?");
         if (set) a.run("update t_session set unread_count=unread_count+1 where");
         a.commit();
         return text(set);
       },
       {"false"}},
  };
  op.flat = {
      {"SetReadStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_read_status(room.newest.id, 1));
         EXPECT_EQ(s.message(room.newest.id, "read_status"), "1");
         EXPECT_EQ(s.session(room, "unread_count"), "3");
       }},
  };
  return op;
}

Operation update_message_receipt_status() {
  Operation op("update_message_receipt_status", Commits::kSeveral);
  op.statements = {
      {"ReceiptForward",
       [](CvDbSingleton& s) { s.update_message_receipt_status("room", Corvan::CV_GROUP, 500); },
       {kReceiptTime,
        {"update t_message set sent_status=3 where session_id=? and session_type=? and sent_time>? and sent_time<=? and direction=0 and sent_status=0",
         kUncoveredBetween},
        {"update t_session set receipt_time=? where session_id=? and session_type=?",
         kBySessionKey}}},
      {"ReceiptNotLater",
       [](CvDbSingleton& s) { s.update_message_receipt_status("room", Corvan::CV_GROUP, 0); },
       {kReceiptTime,
        {"update t_message set sent_status=3 where session_id=? and session_type=? and sent_time<=? and direction=0 and sent_status=0",
         kUncoveredUntil}}},
  };
  op.calls = {
      {"Receipt",
       [](CvDbSingleton& s) { return text(s.update_message_receipt_status("room", kRoom, 250)); },
       [](Answers& a) {
         a.run(kReceiptTime);
         const bool done = a.done("update t_message set sent_status=3");
         if (done) a.run("update t_session set receipt_time=?");
         return text(done);
       },
       {"false"}},
  };
  op.flat = {
      {"UpdateMessageReceiptStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, room.newest.time));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), kNewOnes);
         EXPECT_EQ(s.session(room, "receipt_time"), std::to_string(room.newest.time));
       },
       {kOwn}},
      {"UpdateMessageReceiptStatusWithNothingToCover",
       covers_nothing(""),
       {kLargest, kTiny, kReceived, kCovered}},
      {"UpdateMessageReceiptStatusAtTheFirstReceipt",
       covers_nothing("update t_session set receipt_time=0"),
       {kLargest, kTiny, kReceived, kCovered}},
      {"UpdateMessageReceiptStatusOfALateReceipt",
       [](FilledStore& s, const Room& room) {
         const std::string receipt_time = s.session(room, "receipt_time");
         const int covered = s.count_in(room, "sent_status=3");
         EXPECT_TRUE(
             s.store().update_message_receipt_status(room.id, room.type, std::stoll(receipt_time)));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), covered);
         EXPECT_EQ(s.session(room, "receipt_time"), receipt_time);
       },
       {kLargest, kTiny, kReceived, kCovered}},
  };
  op.growing = {
      {"UpdateMessageReceiptStatusOfAll", kChanged,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set receipt_time=0");
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, kAfterAll));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), room.messages);
       },
       kOwn},
  };
  return op;
}

Operation set_message_content() {
  Operation op("set_message_content", Commits::kOnce);
  op.statements = {
      {"SetContent",
       [](CvDbSingleton& s) { s.set_message_content(1, "c", ""); },
       {{"update t_message set content=? where id=?", kByRowId}}},
      {"SetContentAndKind",
       [](CvDbSingleton& s) { s.set_message_content(1, "c", "CV:New"); },
       {{"update t_message set content=?,object_name=?,is_mention=0 where id=?", kByRowId}}},
  };
  op.calls = {
      {"SetContent",
       [](CvDbSingleton& s) {
         return text(s.set_message_content(1, std::string(9000, 'z'), "CV:New"));
       },
       [](Answers& a) { return text(a.done("update t_message set content=?,object_name=?")); },
       {"false"}},
  };
  op.flat = {
      {"SetMessageContent",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_content(room.middle.id, "changed", "CV:New"));
         EXPECT_EQ(s.message(room.middle.id, "content,object_name"), "changed|CV:New");
       }},
  };
  return op;
}

Operation get_client_uid_of_conversation() {
  Operation op("get_client_uid", Commits::kNothing, "(conversation)");
  op.statements = {
      {"ClientUidOfSession",
       [](CvDbSingleton& s) {
         int64_t uid = 0;
         s.get_client_uid("room", Corvan::CV_GROUP, uid);
       },
       {{"select client_uid from t_message where session_id=? and session_type=? and sent_status=0 order by sent_time desc limit 1",
         kRowsByTime}}},
  };
  op.calls = {
      {"ClientUidOfConversation",
       [](CvDbSingleton& s) {
         int64_t uid = -7;
         s.get_client_uid("room", kRoom, uid);
         return text(uid);
       },
       [](Answers& a) { return text(a.row("select client_uid from t_message") ? 5 : -7); },
       {"-7"}},
  };
  op.flat = {
      {"GetClientUidOfAConversation",
       [](FilledStore& s, const Room& room) {
         int64_t uid = 0;
         s.store().get_client_uid(room.id, room.type, uid);
         EXPECT_EQ(std::to_string(uid), s.message(room.newest.id, "client_uid"));
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"GetClientUidAmongCoveredMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         int64_t uid = -5;
         s.store().get_client_uid(room.id, room.type, uid);
         EXPECT_EQ(uid, -5);
       },
       kCovered},
  };
  op.left_out = {
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

Operation get_client_uid_of_message() {
  Operation op("get_client_uid", Commits::kNothing, "(message)");
  op.statements = {
      {"ClientUidOfMessage",
       [](CvDbSingleton& s) {
         int64_t uid = 0;
         s.get_client_uid(1, uid);
       },
       {{"select client_uid from t_message where id=?", kByRowId}}},
  };
  op.calls = {
      {"ClientUidOfMessage",
       [](CvDbSingleton& s) {
         int64_t uid = -7;
         s.get_client_uid(3, uid);
         return text(uid);
       },
       [](Answers& a) {
         return text(a.row("select client_uid from t_message where id=?") ? 6 : -7);
       },
       {"-7",
        {"2 void Corvan::CvDbSingleton::get_client_uid(int64_t, int64_t &): get_client_uid: begin,msg_id_: 3"}}},
  };
  op.flat = {
      {"GetClientUidOfAMessage",
       [](FilledStore& s, const Room& room) {
         int64_t uid = 0;
         s.store().get_client_uid(room.middle.id, uid);
         EXPECT_EQ(std::to_string(uid), s.message(room.middle.id, "client_uid"));
       }},
  };
  op.left_out = {
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

}  // namespace

Operations operations_of_message_state() {
  return {set_send_time(),
          update_sent_status(),
          set_read_status(),
          update_message_receipt_status(),
          set_message_content(),
          get_client_uid_of_conversation(),
          get_client_uid_of_message()};
}

}  // namespace corvan_test
