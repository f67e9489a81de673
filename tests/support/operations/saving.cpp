// Saving messages.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::UpdateValue;

namespace {

NewMessage message_in(const Room& room) {
  return NewMessage().in(room.id, room.type).at(kAfterAll).named("new in " + room.id);
}

Operation save_message() {
  Operation op("save_message", Commits::kSeveral);
  op.statements = {
      {"SaveWithoutIdsIntoExistingSession",
       [](CvDbSingleton& s) { save(s, NewMessage().at(900)); },
       {kInsertMessage, kSessionExists, kReadSession, kMoveSession}},
      {"SaveFirstMessage",
       [](CvDbSingleton& s) {
         save(s, NewMessage().in("new", Corvan::CV_PRIVATE).named("n1").client(8));
       },
       {kByServerUid, kByClientKey, kInsertMessage, kSessionExists, kAddSession}},
      {"SaveKnownServerUid",
       [](CvDbSingleton& s) { save(s, NewMessage().named("s1")); },
       {kByServerUid}},
      {"SaveKnownClientUid",
       [](CvDbSingleton& s) { save(s, NewMessage().own(5).named("x")); },
       {kByServerUid, kByClientKey}},
      {"SaveEchoOfUnnamedMessage",
       [](CvDbSingleton& s) { save(s, NewMessage().own(6).named("x")); },
       {kByServerUid, kByClientKey, kComplete}},
      {"SaveFetchedOlder",
       [](CvDbSingleton& s) { save(s, NewMessage().at(1).client(5).named("x").fetched()); },
       {kByServerUid, kInsertMessage, kSessionExists, kReadSession}},
  };
  op.calls = {
      {"SaveFirstOfConversation",
       [](CvDbSingleton& s) {
         return text(save(s, NewMessage().in("new", kPeer).named("n1").client(8).mention()));
       },
       [](Answers& a) {
         if (a.row(kByServerUid) || a.row(kByClientKey)) return text(-1);
         return insert_and_move(a);
       },
       {"-1"}},
      {"SaveLive",
       [](CvDbSingleton& s) {
         return text(save(s, NewMessage().at(900).named("n1").text(std::string(9000, 'y'))));
       },
       [](Answers& a) { return a.row(kByServerUid) ? text(-1) : insert_and_move(a); },
       {"-1"}},
      {"SaveKnownServerUid",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().named("s1"))); },
       [](Answers& a) { return a.row(kByServerUid) ? text(-1) : insert_and_move(a); },
       {"-1"}},
      {"SaveKnownClientUid",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().own(5).at(900))); },
       [](Answers& a) { return a.row(kByClientKey) ? text(-1) : insert_and_move(a); },
       {"-1"}},
      {"SaveEcho",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().own(6).at(900).named("n1"))); },
       [](Answers& a) {
         if (a.row(kByServerUid)) return text(-1);
         if (!a.row(kByClientKey)) return insert_and_move(a);
         a.run("update t_message set sent_status=0,server_uid=?");
         return text(3);
       },
       {"-1"}},
      {"SaveFetchedOlder",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().at(1).fetched())); },
       [](Answers& a) {
         if (!a.done("insert into t_message(")) return text(-1);
         const int64_t id = a.last_row_id();
         if (!a.row(kSessionExists)) {
           a.run("insert into t_session(");
         } else if (!a.row(kReadSession)) {
           a.run("update t_session set session_time=?,unread_count=?");
         }
         return text(id);
       },
       {"-1"}},
  };
  op.flat = {
      {"SaveMessage",
       [](FilledStore& s, const Room& room) {
         const int64_t id = s.save(message_in(room));
         EXPECT_GT(id, room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id,unread_count"), std::to_string(id) + "|5");
       }},
      {"SaveMessageOfOwn",
       [](FilledStore& s, const Room& room) {
         const int64_t id = s.save(message_in(room).own(100000).named("").status(1));
         EXPECT_GT(id, room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id"), std::to_string(id));
       }},
      {"SaveMessageFetched",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.save(message_in(room).at(room.middle.time).fetched()), room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
      {"SaveMessageInNewConversation",
       [](FilledStore& s, const Room& room) {
         Room fresh = room;
         fresh.id += " new";
         const int64_t id = s.save(message_in(fresh));
         EXPECT_EQ(s.session(fresh, "latest_id"), std::to_string(id));
       }},
      {"SaveMessageKnownByServerUid",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.save(message_in(room).named(room.middle.uid)), -1);
       }},
      {"SaveMessageKnownByClientKey",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.newest.id);
         EXPECT_EQ(s.save(message_in(room).from(key.sender_).client(key.client_uid_)), -1);
       }},
      {"SaveMessageThatCompletes",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.newest.id);
         s.plant("update t_message set server_uid='' where id=" + std::to_string(room.newest.id));
         EXPECT_EQ(s.save(message_in(room).from(key.sender_).client(key.client_uid_)),
                   room.newest.id);
         EXPECT_EQ(s.message(room.newest.id, "server_uid"), "new in " + room.id);
       }},
  };
  return op;
}

Operation save_message_batch() {
  Operation op("save_message", Commits::kSeveral, "(batch)");
  op.statements = {
      {"SaveBatch",
       [](CvDbSingleton& s) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 3; ++i) {
           batch.push_back(std::make_unique<MessageResponse>());
           batch.back()->msg_id_ = -1;
           batch.back()->is_store_ = true;
         }
         s.save_message(batch);
       },
       {{"insert into t_message(session_id,session_type,object_name,sender,content,direction,read_status,sent_status,sent_time,client_uid,server_uid) values(?,?,?,?,?,?,?,?,?,?,?)",
         kNoPlan}}},
  };
  op.calls = {
      {"SaveBatch",
       [](CvDbSingleton& s) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 3; ++i) {
           batch.push_back(std::make_unique<MessageResponse>());
           batch.back()->session_id_ = "room";
           batch.back()->session_type_ = kRoom;
           batch.back()->msg_id_ = -1;
           batch.back()->is_store_ = true;
         }
         const bool saved = s.save_message(batch);
         return text(saved, batch[0]->msg_id_, batch[1]->msg_id_, batch[2]->msg_id_);
       },
       [](Answers& a) {
         const char* const insert = "insert into t_message(";
         if (!a.prepared(insert)) return a.run(insert), text(false, -1, -1, -1);
         std::string ids;
         for (int i = 0; i < 3; ++i) {
           a.run(insert);
           ids += (i > 0 ? ", " : "") + text(a.last_row_id());
         }
         return text(true, ids);
       },
       {"false, -1, -1, -1"}},
  };
  op.flat = {
      {"SaveMessageBatch",
       [](FilledStore& s, const Room& room) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 3; ++i) {
           auto m = std::make_unique<MessageResponse>();
           m->session_id_ = room.id;
           m->session_type_ = room.type;
           m->msg_id_ = -1;
           m->is_store_ = true;
           m->sent_time_ = kAfterAll;
           batch.push_back(std::move(m));
         }
         EXPECT_TRUE(s.store().save_message(batch));
         EXPECT_EQ(s.count_in(room), room.messages + 3);
       }},
  };
  return op;
}

}  // namespace

Operations operations_of_saving() {
  return {save_message(), save_message_batch()};
}

}  // namespace corvan_test
