// Counters, read and receipt times of one conversation.

#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

std::function<void(CvDbSingleton&)> by_value(int32_t unread, int32_t mention) {
  return [=](CvDbSingleton& s) { s.set_unread_by_value("room", 2, unread, mention); };
}

Operation sync_unread() {
  Operation op("sync_unread", Commits::kOnce);
  op.statements = {
      {"SyncUnread",
       [](CvDbSingleton& s) { s.sync_unread("room", 2, 5); },
       {kRecount,
        {"update t_session set unread_count=?,mention_count=?,read_time=? where session_id=? and session_type=?",
         kBySessionKey}}},
  };
  op.calls = {
      {"SyncUnread",
       [](CvDbSingleton& s) { return text(s.sync_unread("room", 2, 50)); },
       [](Answers& a) {
         return text(a.row_or_done("select sum(case read_status") &&
                     a.done("update t_session set unread_count=?,mention_count=?,read_time=?"));
       },
       {"false"}},
  };
  op.flat = {
      {"SyncUnread",
       [](FilledStore& s, const Room& room) {
         const std::string read_time = s.session(room, "read_time");
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, std::stoll(read_time)));
         EXPECT_EQ(s.session(room, "unread_count,mention_count,read_time"), "5|5|" + read_time);
       },
       {kOlder}},
      {"SyncUnreadWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, 5));
         EXPECT_EQ(s.session(room, "unread_count,mention_count,read_time"), "0|0|5");
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"SyncUnreadOfAll", kCounted,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set read_status=0");
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, 0));
         EXPECT_EQ(s.session(room, "unread_count"), std::to_string(room.messages));
       },
       kOlder},
  };
  op.left_out = {
      {Suite::kKill, "one statement, as set_silence()"},
  };
  return op;
}

Operation clear_unread() {
  Operation op("clear_unread", Commits::kOneTransaction);
  op.statements = {
      {"ClearUnread",
       [](CvDbSingleton& s) { s.clear_unread("room", Corvan::CV_GROUP); },
       {kBegin,
        kNewestReceivedTime,
        kReadTime,
        kMarkRead,
        {"update t_session set unread_count=0,mention_count=0,read_time=? where session_id=? and session_type=?",
         kBySessionKey},
        kCommit}},
  };
  op.calls = {
      {"ClearUnread",
       [](CvDbSingleton& s) { return text(s.clear_unread("peer", kPeer)); },
       [](Answers& a) {
         a.begin();
         a.run("select sent_time from t_message");
         a.run(kReadTime);
         const bool marked = a.done(kMarkRead);
         if (marked) a.run("update t_session set unread_count=0,mention_count=0,read_time=?");
         a.commit();
         return text(marked);
       },
       {"false"}},
  };
  op.flat = {
      {"ClearUnread",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.count_in(room, "read_status=0"), 0);
         EXPECT_TRUE(s.store().clear_unread(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
         EXPECT_EQ(s.session(room, "unread_count,read_time"),
                   "0|" + std::to_string(room.newest.time));
       },
       {kLargest, kTiny, kReceived}},
  };
  op.growing = {
      {"ClearUnreadAmongOwnMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_unread(room.id, room.type));
         EXPECT_EQ(s.session(room, "unread_count,read_time"), "0|0");
       },
       kOwn},
  };
  op.left_out = {
      {Suite::kThreads, "one transaction, driven from one thread"},
  };
  return op;
}

Operation get_receipt_time() {
  Operation op("get_receipt_time", Commits::kNothing);
  op.statements = {
      {"ReceiptTimes",
       [](CvDbSingleton& s) {
         int64_t time = 0;
         s.get_receipt_time("room", 2, time);
         s.get_receipttime("room", 2, time);
       },
       {kReceiptTime, kReceiptTime}},
  };
  op.calls = {
      {"ReceiptTimes",
       [](CvDbSingleton& s) {
         int64_t one_time = -7;
         int64_t two_time = -7;
         s.get_receipt_time("room", 2, one_time);
         s.get_receipttime("room", 2, two_time);
         return text(one_time, two_time);
       },
       [](Answers& a) {
         const int64_t one_time = a.row(kReceiptTime) ? 0 : -7;
         return text(one_time, a.row(kReceiptTime) ? 0 : -7);
       },
       {"-7, -7"}},
  };
  op.flat = {
      {"GetReceiptTime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_receipt_time(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "receipt_time"));
       }},
  };
  return op;
}

Operation set_unread_by_value() {
  Operation op("set_unread_by_value", Commits::kOnce);
  op.statements = {
      {"LowerUnread",
       by_value(12, 0),
       {{"update t_session set unread_count=unread_count-12 where session_id=? and session_type=?",
         kBySessionKey}}},
      {"LowerUnreadAndMention",
       by_value(1, 34),
       {{"update t_session set unread_count=unread_count-1,mention_count=mention_count-34 where session_id=? and session_type=?",
         kBySessionKey}}},
      {"RaiseUnread",
       by_value(-3, -1),
       {{"update t_session set unread_count=unread_count+1 where session_id=? and session_type=?",
         kBySessionKey}}},
      {"LowerByNothing", by_value(0, 5), {}},
  };
  op.calls = {
      {"LowerUnread",
       [](CvDbSingleton& s) { return text(s.set_unread_by_value("room", 2, 1, 1)); },
       [](Answers& a) { return text(a.done("update t_session set unread_count=unread_count-1,")); },
       {"false"}},
      {"LowerUnreadByNothing",
       [](CvDbSingleton& s) { return text(s.set_unread_by_value("room", 2, 0, 1)); },
       {},
       {"true"}},
  };
  op.flat = {
      {"SetUnreadByValue",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_unread_by_value(room.id, room.type, 3, 1));
         EXPECT_EQ(s.session(room, "unread_count,mention_count"), "1|0");
       }},
  };
  op.left_out = {
      {Suite::kKill, "part of set_read_status()"},
  };
  return op;
}

Operation get_unred_mention() {
  Operation op("get_unred_mention", Commits::kNothing);
  op.calls = {
      {"RecountUnread",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         int32_t mention = -7;
         const bool read = s.get_unred_mention("room", 2, 0, unread, mention);
         return text(read, unread, mention);
       },
       {},
       {"false, -7, -7"}},
  };
  op.flat = {
      {"GetUnredMention",
       [](FilledStore& s, const Room& room) {
         int32_t unread = 0;
         int32_t mention = 0;
         const int64_t time = std::stoll(s.session(room, "read_time"));
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, time, unread, mention));
         EXPECT_EQ(unread, kNewOnes);
         EXPECT_EQ(mention, kNewOnes);
       },
       {kOlder}},
      {"GetUnredMentionWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         int32_t unread = -1;
         int32_t mention = -1;
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, 0, unread, mention));
         EXPECT_EQ(unread, 0);
         EXPECT_EQ(mention, 0);
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"GetUnredMentionAmongReadOnes", kPassed,
       [](FilledStore& s, const Room& room) {
         int32_t unread = -1;
         int32_t mention = -1;
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, 0, unread, mention));
         EXPECT_EQ(unread, 0);
         EXPECT_EQ(mention, 0);
       },
       kOlderRead},
  };
  op.left_out = {
      {Suite::kStatements, "part of sync_unread()"},
      {Suite::kFaults, "part of sync_unread()"},
      {Suite::kThreads, "part of sync_unread()"},
  };
  return op;
}

Operation set_unread_readtime() {
  Operation op("set_unread_readtime", Commits::kOnce);
  op.calls = {
      {"SetReadTime",
       [](CvDbSingleton& s) { return s.set_unread_readtime("room", 2, 88), text(""); },
       [](Answers& a) {
         a.run("update t_session set unread_count=0,mention_count=0,read_time=?");
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"SetUnreadReadtime",
       [](FilledStore& s, const Room& room) {
         s.store().set_unread_readtime(room.id, room.type, 5);
         EXPECT_EQ(s.session(room, "unread_count,read_time"), "0|5");
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of clear_unread()"},
      {Suite::kKill, "part of clear_unread()"},
  };
  return op;
}

Operation set_receipttime() {
  Operation op("set_receipttime", Commits::kOnce);
  op.statements = {
      {"SetReceiptTime",
       [](CvDbSingleton& s) { s.set_receipttime("room", 2, 5); },
       {{"update t_session set receipt_time=? where session_id=? and session_type=?",
         kBySessionKey}}},
  };
  op.calls = {
      {"SetReceiptTime",
       [](CvDbSingleton& s) { return s.set_receipttime("room", 2, 77), text(""); },
       [](Answers& a) {
         a.run("update t_session set receipt_time=?");
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"SetReceipttime",
       [](FilledStore& s, const Room& room) {
         s.store().set_receipttime(room.id, room.type, 5);
         EXPECT_EQ(s.session(room, "receipt_time"), "5");
       }},
  };
  op.left_out = {
      {Suite::kKill, "part of update_message_receipt_status()"},
  };
  return op;
}

Operation get_receipttime() {
  Operation op("get_receipttime", Commits::kNothing);
  op.flat = {
      {"GetReceipttime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_receipttime(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "receipt_time"));
       }},
  };
  op.left_out = {
      {Suite::kStatements, "with get_receipt_time()"},
      {Suite::kFaults, "with get_receipt_time()"},
      {Suite::kClosed, "with get_receipt_time()"},
      {Suite::kThreads, "get_receipt_time() calls it"},
      {Suite::kGrowth, "get_receipt_time() calls it"},
  };
  return op;
}

}  // namespace

Operations operations_of_counters() {
  return {sync_unread(),       clear_unread(),        get_receipt_time(), set_unread_by_value(),
          get_unred_mention(), set_unread_readtime(), set_receipttime(),  get_receipttime()};
}

}  // namespace corvan_test
