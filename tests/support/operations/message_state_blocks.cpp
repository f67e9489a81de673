// Message state: the building blocks.

#include <string>

#include "tests/support/numbers.h"
#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

Operation set_sendtime() {
  Operation op("set_sendtime", Commits::kOnce);
  op.statements = {
      {"SetSendtimeUidOnly",
       [](CvDbSingleton& s) { s.set_sendtime(2, 0, "u", -1); },
       {{"update t_message set sent_status=2,server_uid=? where id=?", kByRowId}}},
  };
  op.calls = {
      {"SetSendtime",
       [](CvDbSingleton& s) { return text(s.set_sendtime(3, 0, "", 7)); },
       [](Answers& a) { return text(a.run("update t_message set sent_status=2 where id=?")); },
       {"-1"}},
  };
  op.flat = {
      {"SetSendtime",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().set_sendtime(room.middle.id, kAfterAll, "named", 1), kDone);
         EXPECT_EQ(s.message(room.middle.id, "sent_status,server_uid,sent_time"), "2|named|900000");
       }},
  };
  op.left_out = {
      {Suite::kGrowth, "part of set_send_time()"},
      {Suite::kKill, "part of set_send_time()"},
  };
  return op;
}

Operation common_message_int() {
  Operation op("common_message_int", Commits::kOnce);
  op.statements = {
      {"CommonInt",
       [](CvDbSingleton& s) {
         s.common_message_int(1, 5, "update t_message set sent_status=? where id=?");
       },
       {{"update t_message set sent_status=? where id=?", kByRowId}}},
  };
  op.calls = {
      {"CommonInt",
       [](CvDbSingleton& s) {
         return text(s.common_message_int(2, 9, "update t_message set read_status=? where id=?"));
       },
       [](Answers& a) { return text(a.done("update t_message set read_status=?")); },
       {"false"}},
  };
  op.flat = {
      {"CommonMessageInt",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_message_int(room.middle.id, 9,
                                                  "update t_message set read_status=? where id=?"));
         EXPECT_EQ(s.message(room.middle.id, "read_status"), "9");
       }},
  };
  op.left_out = {
      {Suite::kGrowth, "runs the caller's statement"},
      {Suite::kKill, "runs the caller's statement"},
  };
  return op;
}

Operation common_message_text() {
  Operation op("common_message_text", Commits::kOnce);
  op.statements = {
      {"CommonText",
       [](CvDbSingleton& s) {
         s.common_message_text(1, "x", "update t_message set content=? where id=?");
       },
       {{"update t_message set content=? where id=?", kByRowId}}},
  };
  op.calls = {
      {"CommonText",
       [](CvDbSingleton& s) {
         return text(s.common_message_text(2, "v", "update t_message set server_uid=? where id=?"));
       },
       [](Answers& a) { return text(a.done("update t_message set server_uid=?")); },
       {"false"}},
  };
  op.flat = {
      {"CommonMessageText",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_message_text(room.middle.id, "changed",
                                                   "update t_message set content=? where id=?"));
         EXPECT_EQ(s.message(room.middle.id, "content"), "changed");
       }},
  };
  op.left_out = {
      {Suite::kThreads, "as common_message_int()"},
      {Suite::kGrowth, "runs the caller's statement"},
      {Suite::kKill, "runs the caller's statement"},
  };
  return op;
}

}  // namespace

Operations operations_of_message_state_blocks() {
  return {set_sendtime(), common_message_int(), common_message_text()};
}

}  // namespace corvan_test
