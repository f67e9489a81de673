// Read state and send time.

#include <cstdint>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

Operation get_send_time() {
  Operation op("get_send_time", Commits::kNothing);
  op.statements = {
      {"SendTime", [](CvDbSingleton& s) { s.get_send_time(1); }, {kSendTime}},
      {"SendTimeOfNone", [](CvDbSingleton& s) { s.get_send_time(0); }, {}},
  };
  op.calls = {
      {"SendTime",
       [](CvDbSingleton& s) { return text(s.get_send_time(63)); },
       [](Answers& a) {
         return text(a.row("select sent_time from t_message where id") ? 1059 : 0);
       },
       {"0"}},
  };
  op.flat = {
      {"GetSendTime",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().get_send_time(room.middle.id), room.middle.time);
       }},
  };
  return op;
}

Operation update_message_status() {
  Operation op("update_message_status", Commits::kOnce);
  op.statements = {
      {"MarkRead",
       [](CvDbSingleton& s) { s.update_message_status("room", 2); },
       {kReadTime, kMarkRead}},
  };
  op.calls = {
      {"MarkRead",
       [](CvDbSingleton& s) { return text(s.update_message_status("peer", 1)); },
       [](Answers& a) {
         a.run(kReadTime);
         return text(a.done(kMarkRead));
       },
       {"false"}},
  };
  op.flat = {
      {"UpdateMessageStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.count_in(room, "read_status=0"), 0);
         EXPECT_TRUE(s.store().update_message_status(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       {kLargest, kTiny, kReceived}},
  };
  op.growing = {
      {"UpdateMessageStatusOfAll", kChanged,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set read_time=0;update t_message set read_status=0");
         EXPECT_TRUE(s.store().update_message_status(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=1"), room.messages);
       },
       kReceived},
  };
  op.left_out = {
      {Suite::kKill, "part of clear_unread()"},
  };
  return op;
}

Operation get_readtime() {
  Operation op("get_readtime", Commits::kNothing);
  op.statements = {
      {"ReadTime",
       [](CvDbSingleton& s) {
         int64_t time = 0;
         s.get_readtime("room", 2, time);
       },
       {kReadTime}},
  };
  op.calls = {
      {"ReadTime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         s.get_readtime("room", 2, time);
         return text(time);
       },
       [](Answers& a) { return text(a.row(kReadTime) ? 0 : -7); },
       {"-7"}},
  };
  op.flat = {
      {"GetReadtime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_readtime(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "read_time"));
       }},
  };
  return op;
}

}  // namespace

Operations operations_of_read_state() {
  return {get_send_time(), update_message_status(), get_readtime()};
}

}  // namespace corvan_test
