// Saving messages: duplicate tests and completions.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::UpdateValue;

namespace {

Operation is_message_exist_after() {
  Operation op("is_message_exist", Commits::kNothing, "(timestamp)");
  op.statements = {
      {"ExistByTime",
       [](CvDbSingleton& s) { s.is_message_exist("room", Corvan::CV_GROUP, int64_t{5}); },
       {{"select 1 from t_message where session_id=? and session_type=? and sent_time>? and (direction=1 or (direction=0 and sent_status=3)) limit 1",
         kTimesAfter}}},
  };
  op.calls = {
      {"ExistByTime",
       [](CvDbSingleton& s) { return text(s.is_message_exist("room", kRoom, int64_t{50})); },
       [](Answers& a) { return text(a.row("select 1 from t_message where session_id=?")); },
       {"false"}},
  };
  op.flat = {
      {"IsMessageExistAfterTheBeginning",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_message_exist(room.id, room.type, int64_t{0}));
       },
       {kLargest, kTiny, kReceived, kCovered}},
      {"IsMessageExistAfterTheNewest",
       [](FilledStore& s, const Room& room) {
         EXPECT_FALSE(s.store().is_message_exist(room.id, room.type, room.newest.time));
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"IsMessageExistAmongOwnMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         EXPECT_FALSE(s.store().is_message_exist(room.id, room.type, int64_t{0}));
       },
       kOwn},
  };
  return op;
}

Operation is_message_exist_in_list() {
  Operation op("is_message_exist", Commits::kNothing, "(list of server uids)");
  op.statements = {
      {"ExistByServerUidList",
       [](CvDbSingleton& s) {
         std::vector<std::string> uids;
         s.is_message_exist("'s1','s2'", uids);
       },
       {{"select server_uid from t_message where server_uid in('s1','s2')", kByServerUidAlone}}},
  };
  op.calls = {
      {"ExistByUids",
       [](CvDbSingleton& s) {
         std::vector<std::string> uids;
         const bool read = s.is_message_exist("'s1','x','s2'", uids);
         return text(read, uids);
       },
       [](Answers& a) {
         const int rows = a.rows("select server_uid from t_message where server_uid in(");
         return text(rows >= 0, first({"s1", "s2"}, rows));
       },
       {"false, []"}},
  };
  op.flat = {
      {"IsMessageExistByServerUids",
       [](FilledStore& s, const Room& room) {
         std::vector<std::string> found;
         const std::string uids = quoted(room.middle.uid) + ",'none'," + quoted(room.newest.uid);
         EXPECT_TRUE(s.store().is_message_exist(uids, found));
         EXPECT_EQ(found.size(), 2U);
       }},
  };
  return op;
}

Operation is_message_exist_batch() {
  Operation op("is_message_exist", Commits::kNothing, "(client keys)");
  op.statements = {
      {"ExistBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         s.is_message_exist(values);
       },
       {kByClientKey}},
  };
  op.calls = {
      {"ExistBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         for (UpdateValue& each : values) {
           each.session_id_ = "room";
           each.session_type_ = 2;
           each.sender_ = "me";
         }
         values[0].client_uid_ = 5;
         values[1].client_uid_ = 6;
         const bool matched = s.is_message_exist(values);
         return text(matched, values);
       },
       [](Answers& a) {
         if (!a.prepared(kByClientKey)) {
           a.run(kByClientKey);
           return text(false, std::vector<std::string>{"-1:", "-1:"});
         }
         const bool one_found = a.row(kByClientKey);
         const bool two_found = a.row(kByClientKey);
         return text(one_found || two_found, std::vector<std::string>{one_found ? "2:s2" : "-1:",
                                                                      two_found ? "3:" : "-1:"});
       },
       {"false, [-1: -1:]"}},
  };
  op.flat = {
      {"IsMessageExistByClientKeys",
       [](FilledStore& s, const Room& room) {
         std::vector<UpdateValue> values = {key_of(s, room, room.middle.id),
                                            key_of(s, room, room.newest.id)};
         values[1].client_uid_ = 100000;
         EXPECT_TRUE(s.store().is_message_exist(values));
         EXPECT_EQ(values[0].msg_id_, room.middle.id);
         EXPECT_EQ(values[1].msg_id_, -1);
       }},
  };
  return op;
}

Operation set_send_time_for_dup_msg() {
  Operation op("set_send_time_for_dup_msg", Commits::kOnce);
  op.statements = {
      {"CompleteOne",
       [](CvDbSingleton& s) { s.set_send_time_for_dup_msg(1, 5, "u"); },
       {kComplete}},
  };
  op.calls = {
      {"Complete",
       [](CvDbSingleton& s) { return s.set_send_time_for_dup_msg(3, 900, "n1"), text(""); },
       [](Answers& a) {
         a.run("update t_message set sent_status=0,server_uid=?");
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"SetSendTimeForDupMsg",
       [](FilledStore& s, const Room& room) {
         s.store().set_send_time_for_dup_msg(room.middle.id, kAfterAll, "named");
         EXPECT_EQ(s.message(room.middle.id, "server_uid,sent_time"), "named|900000");
       }},
  };
  return op;
}

Operation set_send_time_for_dup_msgs() {
  Operation op("set_send_time_for_dup_msg", Commits::kSeveral, "(batch)");
  op.statements = {
      {"CompleteBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = 1;
         s.set_send_time_for_dup_msg(values);
       },
       {kComplete}},
  };
  op.calls = {
      {"CompleteBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = 3;
         values[0].server_uid_new_ = "n1";
         values[1].msg_id_ = 2;
         values[1].server_uid_new_ = "n2";
         s.set_send_time_for_dup_msg(values);
         return text("");
       },
       [](Answers& a) {
         const char* const complete = "update t_message set sent_status=0,server_uid=?";
         const bool prepared = a.prepared(complete);
         a.run(complete);
         if (prepared) a.run(complete);
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"SetSendTimeForDupMsgs",
       [](FilledStore& s, const Room& room) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = room.middle.id;
         values[1].msg_id_ = room.newest.id;
         for (UpdateValue& value : values) value.server_uid_new_ = "named";
         s.store().set_send_time_for_dup_msg(values);
         EXPECT_EQ(s.count_in(room, "server_uid='named'"), 2);
       }},
  };
  return op;
}

Operation is_message_exist_by_server_uid() {
  Operation op("is_message_exist", Commits::kNothing, "(server uid)");
  op.statements = {
      {"ExistByServerUid", [](CvDbSingleton& s) { s.is_message_exist("s1"); }, {kByServerUid}},
      {"ExistByEmptyServerUid", [](CvDbSingleton& s) { s.is_message_exist(""); }, {}},
  };
  op.calls = {
      {"ExistByUid",
       [](CvDbSingleton& s) { return text(s.is_message_exist("p30")); },
       [](Answers& a) { return text(a.row(kByServerUid)); },
       {"false"}},
  };
  op.flat = {
      {"IsMessageExistByServerUid",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_message_exist(room.middle.uid));
         EXPECT_FALSE(s.store().is_message_exist("none"));
       }},
  };
  return op;
}

Operation is_message_exist_by_client_key() {
  Operation op("is_message_exist", Commits::kNothing, "(client key)");
  op.statements = {
      {"ExistByClientKey",
       [](CvDbSingleton& s) {
         int64_t id = 0;
         std::string uid;
         s.is_message_exist(5, "me", "room", 2, id, uid);
         s.is_message_exist(0, "me", "room", 2, id, uid);
       },
       {kByClientKey}},
  };
  op.calls = {
      {"ExistByClientKey",
       [](CvDbSingleton& s) {
         int64_t id = -7;
         std::string uid = "kept";
         const bool found = s.is_message_exist(5, "me", "room", 2, id, uid);
         return text(found, id, uid);
       },
       [](Answers& a) {
         return a.row(kByClientKey) ? text(true, 2, "s2") : text(false, -7, "kept");
       },
       {"false, -7, kept"}},
  };
  op.flat = {
      {"IsMessageExistByClientKey",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.middle.id);
         int64_t id = 0;
         std::string uid;
         EXPECT_TRUE(
             s.store().is_message_exist(key.client_uid_, key.sender_, room.id, room.type, id, uid));
         EXPECT_EQ(id, room.middle.id);
         EXPECT_FALSE(s.store().is_message_exist(100000, key.sender_, room.id, room.type, id, uid));
       }},
  };
  return op;
}

}  // namespace

Operations operations_of_duplicate_tests() {
  return {is_message_exist_after(),        is_message_exist_in_list(),
          is_message_exist_batch(),        set_send_time_for_dup_msg(),
          set_send_time_for_dup_msgs(),    is_message_exist_by_server_uid(),
          is_message_exist_by_client_key()};
}

}  // namespace corvan_test
