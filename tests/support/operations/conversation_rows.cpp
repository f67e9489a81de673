// Conversation rows and settings: the building blocks.

#include <cstdint>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

Operation is_session_exist() {
  Operation op("is_session_exist", Commits::kNothing);
  op.statements = {
      {"SessionExists", [](CvDbSingleton& s) { s.is_session_exist("room", 2); }, {kSessionExists}},
  };
  op.calls = {
      {"SessionExists",
       [](CvDbSingleton& s) { return text(s.is_session_exist("room", 2)); },
       {},
       {"false"}},
  };
  op.flat = {
      {"IsSessionExist",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_session_exist(room.id, room.type));
         EXPECT_FALSE(s.store().is_session_exist("none", room.type));
       }},
  };
  op.left_out = {
      {Suite::kFaults, "save_message() and set_is_top() call it"},
  };
  return op;
}

Operation add_session() {
  Operation op("add_session", Commits::kOnce);
  op.statements = {
      {"AddSession",
       [](CvDbSingleton& s) { s.add_session("new", Corvan::CV_GROUP, 1, 2, "", 3, 4); },
       {kAddSession}},
  };
  op.calls = {
      {"AddSession",
       [](CvDbSingleton& s) { return text(s.add_session("new", kRoom, 5, 3, "title", 1, 1)); },
       [](Answers& a) { return text(a.done("insert into t_session(session_id,")); },
       {"false"}},
  };
  op.flat = {
      {"AddSession",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().add_session("new", Corvan::CV_GROUP, 5, -1, "title", 1, 2));
         EXPECT_EQ(s.session(new_room(), "session_time,title"), "5|title");
       },
       {kTiny}},
  };
  op.left_out = {
      {Suite::kKill, "part of save_message()"},
  };
  return op;
}

Operation set_session_time() {
  Operation op("set_session_time", Commits::kOnce);
  op.statements = {
      {"SetSessionTime",
       [](CvDbSingleton& s) { s.set_session_time("room", Corvan::CV_GROUP, 999, "", 1, 1, 1, 0); },
       {kReadSession, kMoveSession}},
  };
  op.calls = {
      {"SetSessionTime",
       [](CvDbSingleton& s) {
         s.set_session_time("room", kRoom, 999, "", 1, 1, 1, 0);
         return text("");
       },
       {},
       {""}},
  };
  op.flat = {
      {"SetSessionTime",
       [](FilledStore& s, const Room& room) {
         s.store().set_session_time(room.id, room.type, kAfterAll, "CV:TxtMsg", room.middle.id, 1,
                                    1, 0);
         EXPECT_EQ(s.session(room, "session_time,unread_count"), "900000|5");
       }},
  };
  op.left_out = {
      {Suite::kFaults, "part of save_message()"},
      {Suite::kKill, "part of save_message()"},
  };
  return op;
}

Operation set_sessiontime() {
  Operation op("set_sessiontime", Commits::kOnce);
  op.calls = {
      {"SetSessiontime",
       [](CvDbSingleton& s) {
         s.set_sessiontime(999, 1, "room", kRoom);
         return text("");
       },
       {},
       {""}},
  };
  op.flat = {
      {"SetSessiontime",
       [](FilledStore& s, const Room& room) {
         s.store().set_sessiontime(kAfterAll, room.middle.id, room.id, room.type);
         EXPECT_EQ(s.session(room, "session_time"), "900000");
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of set_send_time()"},
      {Suite::kFaults, "part of set_send_time()"},
      {Suite::kKill, "part of set_send_time()"},
  };
  return op;
}

Operation get_sessiontime() {
  Operation op("get_sessiontime", Commits::kNothing);
  op.calls = {
      {"GetSessiontime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         int64_t id = -7;
         int32_t unread = -7;
         int32_t mention = -7;
         s.get_sessiontime("room", 2, time, id, unread, mention);
         return text(time, id, unread, mention);
       },
       [](Answers& a) { return a.row(kReadSession) ? text(300, 3, 1, 1) : text(-7, -7, -7, -7); },
       {"-7, -7, -7, -7"}},
  };
  op.flat = {
      {"GetSessiontime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         int64_t latest = 0;
         int32_t unread = 0;
         int32_t mention = 0;
         s.store().get_sessiontime(room.id, room.type, time, latest, unread, mention);
         EXPECT_EQ(time, room.newest.time);
         EXPECT_EQ(latest, room.newest.id);
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of set_send_time()"},
      {Suite::kThreads, "reads in one statement, as the others do"},
  };
  return op;
}

Operation delete_session() {
  Operation op("delete_session", Commits::kOnce);
  op.calls = {
      {"DeleteSession",
       [](CvDbSingleton& s) { return text(s.delete_session("room", 2)); },
       {},
       {"false"}},
  };
  op.flat = {
      {"DeleteSession",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of remove_session()"},
      {Suite::kFaults, "part of remove_session()"},
      {Suite::kGrowth, "part of remove_session()"},
      {Suite::kKill, "part of remove_session()"},
  };
  return op;
}

}  // namespace

Operations operations_of_conversation_rows() {
  return {is_session_exist(), add_session(),     set_session_time(),
          set_sessiontime(),  get_sessiontime(), delete_session()};
}

}  // namespace corvan_test
