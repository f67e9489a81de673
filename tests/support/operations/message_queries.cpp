// Message queries: single messages, newest times and ids.

#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

namespace {

OnFilledStore max_time(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    int64_t time = 0;
    s.store().get_max_time(time, room.type, room.id, choice);
    EXPECT_EQ(time, room.newest.time);
  };
}

OnFilledStore max_message_id(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    EXPECT_EQ(s.store().get_max_message_id(room.type, room.id, choice), room.newest.id);
  };
}

OnFilledStore no_max_time(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    int64_t time = -5;
    s.store().get_max_time(time, room.type, room.id, choice);
    EXPECT_EQ(time, -5);
  };
}

OnFilledStore no_max_message_id(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    EXPECT_EQ(s.store().get_max_message_id(room.type, room.id, choice), -1);
  };
}

// Calls get_max_time() and get_max_message_id() with this type.
std::function<void(CvDbSingleton&)> newest(int32_t type) {
  return [=](CvDbSingleton& s) {
    int64_t time = 0;
    s.get_max_time(time, Corvan::CV_GROUP, "room", type);
    s.get_max_message_id(Corvan::CV_GROUP, "room", type);
  };
}

Operation get_message_by_id() {
  Operation op("get_message_by_id", Commits::kNothing);
  op.statements = {
      {"MessageById",
       [](CvDbSingleton& s) {
         MessageResponse msg;
         s.get_message_by_id(msg);
       },
       {{"select session_id,session_type,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid from t_message where id=?",
         kByRowId}}},
  };
  op.calls = {
      {"MessageById",
       [](CvDbSingleton& s) {
         MessageResponse m;
         m.msg_id_ = 1;
         const bool found = s.get_message_by_id(m);
         return text(found, m);
       },
       [](Answers& a) {
         MessageResponse kept;
         kept.msg_id_ = 1;
         return a.row("select session_id,session_type,content,direction") ? text(true, kMessage1)
                                                                          : text(false, kept);
       },
       {"false, 1::0:::::000:0"}},
  };
  op.flat = {
      {"GetMessageById",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.msg_id_ = room.middle.id;
         EXPECT_TRUE(s.store().get_message_by_id(m));
         EXPECT_EQ(m.server_uid_, room.middle.uid);
       }},
  };
  op.left_out = {
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

Operation get_message_by_uid() {
  Operation op("get_message_by_uid", Commits::kNothing);
  op.statements = {
      {"MessageByUid",
       [](CvDbSingleton& s) {
         MessageResponse msg;
         s.get_message_by_uid(msg);
       },
       {{"select session_id,session_type,content,direction,read_status,sent_time,object_name,sent_status,sender,id from t_message where server_uid=?",
         kByServerUidIndex}}},
  };
  op.calls = {
      {"MessageByUid",
       [](CvDbSingleton& s) {
         MessageResponse m;
         m.server_uid_ = "p33";
         const bool found = s.get_message_by_uid(m);
         return text(found, m);
       },
       [](Answers& a) {
         MessageResponse kept;
         kept.server_uid_ = "p33";
         return a.row("select session_id,session_type,content,direction")
                    ? text(true, peer_message(33))
                    : text(false, kept);
       },
       {"false, 0::0::::p33:000:0"}},
  };
  op.flat = {
      {"GetMessageByUid",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.server_uid_ = room.middle.uid;
         EXPECT_TRUE(s.store().get_message_by_uid(m));
         EXPECT_EQ(m.msg_id_, room.middle.id);
       }},
  };
  return op;
}

Operation get_max_time() {
  Operation op("get_max_time", Commits::kNothing);
  op.statements = {
      {"NewestOfAll",
       newest(2),
       {kNewestTime,
        {"select id from t_message where session_id=? and session_type=? order by id desc limit 1",
         kIdsOfSession}}},
      {"NewestReceived",
       newest(1),
       {kNewestReceivedTime,
        {"select id from t_message where session_id=? and session_type=? and direction=1 order by id desc limit 1",
         kRowsOfSession}}},
      {"NewestSent",
       newest(0),
       {{"select sent_time from t_message where session_id=? and session_type=? and sent_status=0 order by sent_time desc limit 1",
         kTimesOfSession},
        {"select id from t_message where session_id=? and session_type=? and sent_status=0 order by id desc limit 1",
         kRowsOfSession}}},
  };
  op.calls = {
      {"MaxTime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         s.get_max_time(time, kPeer, "peer", 1);
         return text(time);
       },
       [](Answers& a) { return text(a.row("select sent_time from t_message") ? 1059 : -7); },
       {"-7"}},
  };
  op.flat = {
      {"GetMaxTimeOfSent", max_time(0), {kLargest, kTiny, kOwn, kReceived}},
      {"GetMaxTimeOfReceived", max_time(1), {kLargest, kTiny, kReceived}},
      {"GetMaxTimeOfAny", max_time(2), {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"GetMaxTimeOfSentAmongCoveredMessages", kPassed, no_max_time(0), kCovered},
      {"GetMaxTimeOfReceivedAmongOwnMessages", kPassed, no_max_time(1), kOwn},
  };
  op.left_out = {
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

Operation get_max_message_id() {
  Operation op("get_max_message_id", Commits::kNothing);
  op.calls = {
      {"MaxId",
       [](CvDbSingleton& s) { return text(s.get_max_message_id(kPeer, "peer", 2)); },
       [](Answers& a) { return text(a.row("select id from t_message") ? 63 : -1); },
       {"-1"}},
  };
  op.flat = {
      {"GetMaxMessageIdOfSent", max_message_id(0), {kLargest, kTiny, kOwn, kReceived}},
      {"GetMaxMessageIdOfReceived", max_message_id(1), {kLargest, kTiny, kReceived}},
      {"GetMaxMessageIdOfAny", max_message_id(2), {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"GetMaxMessageIdOfSentAmongCoveredMessages", kPassed, no_max_message_id(0), kCovered},
      {"GetMaxMessageIdOfReceivedAmongOwnMessages", kPassed, no_max_message_id(1), kOwn},
  };
  op.left_out = {
      {Suite::kStatements, "with get_max_time()"},
  };
  return op;
}

Operation query_message() {
  Operation op("query_message", Commits::kNothing);
  op.calls = {
      {"QueryByUid",
       [](CvDbSingleton& s) {
         MessageResponse m;
         m.msg_id_ = 1;
         m.server_uid_ = "s1";
         const bool found = s.query_message(m, true);
         return text(found, m);
       },
       {},
       {"false, 1::0::::s1:000:0"}},
  };
  op.flat = {
      {"QueryMessage",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.server_uid_ = room.middle.uid;
         EXPECT_TRUE(s.store().query_message(m, true));
         EXPECT_EQ(m.msg_id_, room.middle.id);
         m.server_uid_.clear();
         EXPECT_TRUE(s.store().query_message(m, false));
         EXPECT_EQ(m.server_uid_, room.middle.uid);
       }},
  };
  op.left_out = {
      {Suite::kStatements, "calls get_message_by_uid() or get_message_by_id()"},
      {Suite::kFaults, "calls get_message_by_uid() or get_message_by_id()"},
      {Suite::kThreads, "reads in one statement, as the others do"},
      {Suite::kGrowth, "calls get_message_by_uid() or get_message_by_id()"},
  };
  return op;
}

Operation get_message_by_id_with_state() {
  Operation op("get_message_by_id", Commits::kNothing, "(state)");
  op.statements = {
      {"MessageStateById",
       [](CvDbSingleton& s) {
         std::string id;
         int32_t type = 0;
         bool unread = false;
         bool mention = false;
         int64_t time = 0;
         s.get_message_by_id(1, id, type, unread, mention, time);
       },
       {kMessageState}},
  };
  op.calls = {
      {"StateById",
       [](CvDbSingleton& s) {
         std::string id = "kept";
         int32_t kind = -7;
         bool unread = false;
         bool mention = true;
         int64_t time = -7;
         const bool found = s.get_message_by_id(1, id, kind, unread, mention, time);
         return text(found, id, kind, unread, mention, time);
       },
       [](Answers& a) {
         return a.row("select session_id,session_type,read_status,is_mention,sent_time")
                    ? text(true, "room", 2, true, true, 100)
                    : text(false, "kept", -7, false, true, -7);
       },
       {"false, kept, -7, false, true, -7"}},
  };
  op.flat = {
      {"GetMessageByIdAndState",
       [](FilledStore& s, const Room& room) {
         std::string id;
         int32_t type = 0;
         bool unread = false;
         bool mention = false;
         int64_t time = 0;
         EXPECT_TRUE(s.store().get_message_by_id(room.middle.id, id, type, unread, mention, time));
         EXPECT_EQ(id, room.id);
         EXPECT_EQ(time, room.middle.time);
       }},
  };
  op.left_out = {
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

Operation get_maxtime() {
  Operation op("get_maxtime", Commits::kNothing);
  op.calls = {
      {"Maxtime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         s.get_maxtime(time, kRoom, "room", 2);
         return text(time);
       },
       {},
       {"-7"}},
  };
  op.flat = {
      {"GetMaxtime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_maxtime(time, room.type, room.id, 2);
         EXPECT_EQ(time, room.newest.time);
       }},
  };
  op.left_out = {
      {Suite::kStatements, "get_max_time() calls it"},
      {Suite::kFaults, "get_max_time() calls it"},
      {Suite::kThreads, "reads in one statement, as the others do"},
      {Suite::kGrowth, "get_max_time() calls it"},
  };
  return op;
}

}  // namespace

Operations operations_of_message_queries() {
  return {get_message_by_id(), get_message_by_uid(),           get_max_time(), get_max_message_id(),
          query_message(),     get_message_by_id_with_state(), get_maxtime()};
}

}  // namespace corvan_test
