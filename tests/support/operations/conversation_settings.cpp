// Conversation rows and settings: pins, drafts, silence, removal.

#include <cstdint>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

Operation set_is_top() {
  Operation op("set_is_top", Commits::kOnce);
  op.statements = {
      {"SetIsTop",
       [](CvDbSingleton& s) { s.set_is_top("room", Corvan::CV_GROUP, true, false); },
       {kSessionExists,
        {"update t_session set is_top=? where session_id=? and session_type=?", kBySessionKey}}},
      {"SetIsTopOfMissing",
       [](CvDbSingleton& s) {
         s.set_is_top("new", Corvan::CV_GROUP, true, false);
         s.set_is_top("new", Corvan::CV_GROUP, true, true);
       },
       {kSessionExists,
        kSessionExists,
        {"insert into t_session(is_top,session_time,session_id,session_type,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)",
         kNoPlan}}},
  };
  op.calls = {
      {"Pin",
       [](CvDbSingleton& s) { return text(s.set_is_top("room", kRoom, true, true)); },
       [](Answers& a) {
         // If the lookup fails, the store tries to create the conversation, and the key refuses it.
         return text(a.row(kSessionExists) ? a.done("update t_session set is_top=?")
                                           : a.done("insert into t_session(is_top,"));
       },
       {"false"}},
      {"PinMissing",
       [](CvDbSingleton& s) { return text(s.set_is_top("new", kRoom, true, true)); },
       [](Answers& a) {
         a.run(kSessionExists);
         return text(a.done("insert into t_session(is_top,"));
       },
       {"false"}},
      {"Unpin",
       [](CvDbSingleton& s) { return text(s.set_is_top("room", kRoom, false, true)); },
       {},
       {"true"}},
  };
  op.flat = {
      {"SetIsTop",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_is_top(room.id, room.type, true, false));
         EXPECT_EQ(s.session(room, "is_top"), "1");
       }},
      {"SetIsTopOfANewConversation",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().set_is_top("new", Corvan::CV_GROUP, true, true));
         EXPECT_EQ(s.session(new_room(), "is_top"), "1");
       },
       {kTiny}},
  };
  return op;
}

Operation set_message_draft() {
  Operation op("set_message_draft", Commits::kOnce);
  op.statements = {
      {"SetDraft",
       [](CvDbSingleton& s) { s.set_message_draft("room", Corvan::CV_GROUP, "d"); },
       {kSessionExists,
        {"update t_session set draft=?,session_time=? where session_id=? and session_type=?",
         kBySessionKey}}},
      {"ClearDraft",
       [](CvDbSingleton& s) { s.set_message_draft("room", Corvan::CV_GROUP, ""); },
       {kSessionExists,
        {"update t_session set draft=? where session_id=? and session_type=?", kBySessionKey}}},
      {"SetDraftOfMissing",
       [](CvDbSingleton& s) {
         s.set_message_draft("new", Corvan::CV_GROUP, "");
         s.set_message_draft("new", Corvan::CV_GROUP, "d");
       },
       {kSessionExists,
        kSessionExists,
        {"insert into t_session(draft,session_id,session_type,session_time,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?,?)",
         kRefused}}},
  };
  op.calls = {
      {"Draft",
       [](CvDbSingleton& s) { return text(s.set_message_draft("room", kRoom, "d")); },
       [](Answers& a) {
         return text(a.row(kSessionExists) ? a.done("update t_session set draft=?,session_time=?")
                                           : a.done("insert into t_session(draft,"));
       },
       {"false"}},
      {"ClearDraft",
       [](CvDbSingleton& s) { return text(s.set_message_draft("room", kRoom, "")); },
       [](Answers& a) {
         return text(!a.row(kSessionExists) || a.done("update t_session set draft=? where"));
       },
       {"true"}},
  };
  op.flat = {
      {"SetMessageDraft",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_draft(room.id, room.type, "to do"));
         EXPECT_EQ(s.session(room, "draft,session_time"), "to do|900001");
       }},
      {"SetMessageDraftToNone",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set draft='to do'");
         EXPECT_TRUE(s.store().set_message_draft(room.id, room.type, ""));
         EXPECT_EQ(s.session(room, "draft"), "");
       }},
  };
  return op;
}

Operation get_message_draft() {
  Operation op("get_message_draft", Commits::kNothing);
  op.statements = {
      {"GetDraft",
       [](CvDbSingleton& s) {
         std::string draft;
         s.get_message_draft("room", Corvan::CV_GROUP, draft);
       },
       {{"select draft_message from t_session where session_id=? and session_type=?", kRefused}}},
  };
  op.calls = {
      {"GetDraft",
       [](CvDbSingleton& s) {
         std::string draft = "kept";
         const bool found = s.get_message_draft("room", kRoom, draft);
         return text(found, draft);
       },
       [](Answers& a) {
         a.run("select draft_message from t_session");
         return text(false, "kept");
       },
       {"false, kept"}},
  };
  op.left_out = {
      {Suite::kSteps, "its statement cannot be prepared"},
      {Suite::kThreads, "always fails"},
      {Suite::kGrowth, "always fails"},
  };
  return op;
}

Operation set_silence() {
  Operation op("set_silence", Commits::kOnce);
  op.statements = {
      {"SetSilence",
       [](CvDbSingleton& s) { s.set_silence("room", Corvan::CV_GROUP, 1); },
       {{"update t_session set silence=? where session_id=? and session_type=?", kBySessionKey}}},
  };
  op.calls = {
      {"SetSilence",
       [](CvDbSingleton& s) { return text(s.set_silence("room", kRoom, 2)); },
       [](Answers& a) { return text(a.done("update t_session set silence=?")); },
       {"false"}},
  };
  op.flat = {
      {"SetSilence",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_silence(room.id, room.type, 2));
         EXPECT_EQ(s.session(room, "silence"), "2");
       }},
  };
  return op;
}

Operation get_silence() {
  Operation op("get_silence", Commits::kNothing);
  op.statements = {
      {"GetSilence",
       [](CvDbSingleton& s) {
         int32_t status = 0;
         s.get_silence("room", Corvan::CV_GROUP, status);
       },
       {{"select silence from t_session where session_id=? and session_type=?", kBySessionKey}}},
  };
  op.calls = {
      {"GetSilence",
       [](CvDbSingleton& s) {
         int32_t status = -7;
         const bool found = s.get_silence("room", kRoom, status);
         return text(found, status);
       },
       [](Answers& a) {
         return a.row("select silence from t_session") ? text(true, 0) : text(false, -7);
       },
       {"false, -7"}},
  };
  op.flat = {
      {"GetSilence",
       [](FilledStore& s, const Room& room) {
         int32_t status = -1;
         EXPECT_TRUE(s.store().get_silence(room.id, room.type, status));
         EXPECT_EQ(status, 0);
       }},
  };
  return op;
}

Operation remove_session() {
  Operation op("remove_session", Commits::kSeveral);
  op.statements = {
      {"RemoveSession",
       [](CvDbSingleton& s) { s.remove_session("room", Corvan::CV_GROUP); },
       {{"delete from t_session where session_id=? and session_type=?", kBySessionKey},
        kReadTime,
        kMarkRead}},
  };
  op.calls = {
      {"RemoveSession",
       [](CvDbSingleton& s) { return text(s.remove_session("peer", kPeer)); },
       [](Answers& a) {
         if (!a.done("delete from t_session where session_id=?")) return text(false);
         a.run(kReadTime);
         a.run(kMarkRead);
         return text(true);
       },
       {"false"}},
  };
  op.flat = {
      {"RemoveSession",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().remove_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       {kTiny}},
  };
  op.growing = {
      // The row and its read time are deleted before the messages are marked.
      {"RemoveSession", kChanged,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().remove_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       kReceived},
  };
  return op;
}

Operation clear_session() {
  Operation op("clear_session", Commits::kOneTransaction);
  op.statements = {
      {"ClearSession",
       [](CvDbSingleton& s) {
         s.clear_session({Corvan::CV_GROUP, Corvan::SessionType(9), Corvan::CV_SYSTEM});
       },
       {kBegin,
        {"delete from t_session where session_type in(2,5)", kScanForKinds},
        {"delete from t_message where session_type in(2,5)", kByKind},
        kCommit}},
      {"ClearSessionOfOneKind",
       [](CvDbSingleton& s) { s.clear_session({Corvan::CV_GROUP}); },
       {kBegin,
        {"delete from t_session where session_type in(2)", kScanForKinds},
        {"delete from t_message where session_type in(2)", kByKind},
        kCommit}},
      {"ClearNoSession",
       [](CvDbSingleton& s) { s.clear_session({}); },
       {kBegin,
        {"delete from t_session where session_type in()", kEmptyList},
        {"delete from t_message where session_type in()", kEmptyList},
        kCommit}},
  };
  op.calls = {
      {"ClearSession",
       [](CvDbSingleton& s) {
         return text(s.clear_session({Corvan::CV_PRIVATE, Corvan::CV_CHATROOM}));
       },
       [](Answers& a) {
         a.begin();
         const bool cleared = a.done("delete from t_session where session_type in(1,3)") &&
                              a.done("delete from t_message where session_type in(1,3)");
         a.commit();
         return text(cleared);
       },
       {"false"}},
  };
  op.growing = {
      {"ClearSession", "the conversations, among which it finds those of the kinds",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().clear_session({Corvan::CV_SYSTEM}));
         EXPECT_EQ(s.count("t_session where session_type=5"), 0);
         EXPECT_EQ(s.count("t_message where session_type=5"), 0);
       }},
      {"ClearSessionOfKindsThatAreNotThere", kSessionsPassed,
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_session");
         EXPECT_TRUE(s.store().clear_session(kNoKinds));
         EXPECT_EQ(s.count("t_session"), before);
       }},
  };
  return op;
}

Operation common_session_operation() {
  Operation op("common_session_operation", Commits::kOnce);
  op.statements = {
      {"CommonSessionOperation",
       [](CvDbSingleton& s) {
         s.common_session_operation(
             "room", 2, "update t_session set title='t' where session_id=? and session_type=?");
       },
       {{"update t_session set title='t' where session_id=? and session_type=?", kBySessionKey}}},
  };
  op.calls = {
      {"CommonSession",
       [](CvDbSingleton& s) {
         return text(s.common_session_operation(
             "room", 2, "update t_session set title='t' where session_id=? and session_type=?"));
       },
       [](Answers& a) { return text(a.done("update t_session set title='t'")); },
       {"false"}},
  };
  op.flat = {
      {"CommonSessionOperation",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_session_operation(
             room.id, room.type,
             "update t_session set silence=7 where session_id=? and session_type=?"));
         EXPECT_EQ(s.session(room, "silence"), "7");
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

Operations operations_of_conversation_settings() {
  return {set_is_top(),  set_message_draft(), get_message_draft(), set_silence(),
          get_silence(), remove_session(),    clear_session(),     common_session_operation()};
}

}  // namespace corvan_test
