// Conversation list: the building blocks.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::Session;

namespace {

const char* const kSomeIds = "1,2,3,4,5,6,7,8";

Operation load_session_page() {
  Operation op("load_session", Commits::kNothing, "(page)");
  op.statements = {
      {"LoadSessionWithoutTime",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         std::string kinds = "2";
         s.load_session(rows, kinds, -1, 5, false);
       },
       {session_page("2)", kListFromTop)}},
      {"LoadPagesOfSeveralKinds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         std::string kinds = "1,2";
         s.load_session(rows, kinds, 7, 5, false);
         s.load_session(rows, kinds, 7, 5, true);
       },
       {session_page("1,2) and session_time<? and is_top=0", kListAfterPinned),
        session_page("1,2) and ((session_time<? and is_top=1) or is_top=0)", kListFromTop)}},
  };
  op.calls = {
      {"LoadSessionPage",
       [](CvDbSingleton& s) {
         std::vector<Session> list;
         std::string kinds = "2";
         const bool any = s.load_session(list, kinds, 0, 5, false);
         return text(any, list);
       },
       {},
       {"false, []"}},
  };
  op.flat = {
      {"ListPageFurtherDown",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> page;
         std::string kinds = "1,2";
         const int64_t time =
             std::stoll(s.row("select session_time from t_session where is_top=0 order by "
                              "session_time desc limit 1 offset 20"));
         EXPECT_LT(time, room.newest.time);
         EXPECT_TRUE(s.store().load_session(page, kinds, time, kPage, false));
         EXPECT_EQ(page.size(), std::size_t{kPage});
       },
       {kTiny}},
  };
  op.left_out = {
      {Suite::kFaults, "part of get_session_list_by_page()"},
  };
  return op;
}

Operation load_session_row() {
  Operation op("load_session", Commits::kNothing, "(row)");
  op.calls = {
      {"LoadSessionRow",
       [](CvDbSingleton& s) {
         Session row;
         return text(s.load_session(row, "room", 2), row);
       },
       {},
       {"false, :0:0:0:0:0:0:"}},
  };
  op.flat = {
      {"LoadSession",
       [](FilledStore& s, const Room& room) {
         Session row;
         EXPECT_TRUE(s.store().load_session(row, room.id, room.type));
         EXPECT_EQ(row.latest_id_, room.newest.id);
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of get_session()"},
      {Suite::kFaults, "part of get_session()"},
  };
  return op;
}

Operation load_messages_of_page() {
  Operation op("load_message", Commits::kNothing, "(page)");
  op.statements = {
      {"LoadMessages",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_message(rows, "1,2");
       },
       {messages_of_page("1,2")}},
  };
  op.calls = {
      {"LoadMessages",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool read = s.load_message(found, "1,2");
         return text(read, found);
       },
       [](Answers& a) {
         const int rows = a.rows(kMessagesOfPage);
         return text(rows >= 0,
                     first({"room:2:0:100:0:0:0:hello", "room:2:0:200:0:0:0:hello"}, rows));
       },
       {"false, []"}},
  };
  op.flat = {
      {"LoadMessageOfAPage",
       [](FilledStore& s, const Room&) {
         std::vector<Session> messages;
         EXPECT_TRUE(s.store().load_message(messages, kSomeIds));
         EXPECT_EQ(messages.size(), 8U);
       },
       {kTiny}},
  };
  return op;
}

Operation load_message_of_row() {
  Operation op("load_message", Commits::kNothing, "(row)");
  op.calls = {
      {"LoadMessageOfRow",
       [](CvDbSingleton& s) {
         Session row;
         return text(s.load_message(row), row);
       },
       {},
       {"false, :0:0:0:0:0:0:"}},
  };
  op.flat = {
      {"LoadMessage",
       [](FilledStore& s, const Room& room) {
         Session row;
         row.latest_id_ = room.middle.id;
         EXPECT_TRUE(s.store().load_message(row));
         EXPECT_EQ(row.server_uid_, room.middle.uid);
       }},
  };
  op.left_out = {
      {Suite::kStatements, "part of get_session()"},
      {Suite::kFaults, "part of get_session()"},
  };
  return op;
}

Operation load_distinct_session_with_unread() {
  Operation op("load_distinct_session_with_unread", Commits::kNothing);
  op.statements = {
      {"UnreadOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_distinct_session_with_unread(rows, "1,2");
       },
       {unread_of_ids("1,2")}},
  };
  op.calls = {
      {"UnreadOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool any = s.load_distinct_session_with_unread(found, "1,4");
         return text(any, found);
       },
       [](Answers& a) {
         const int rows = a.rows("select session_id,session_type,read_status,is_mention,sent_time");
         return page_text(first({"room:2:0:100:1:1:0:", "peer:1:0:1000:1:0:0:"}, rows));
       },
       {"false, []"}},
  };
  op.flat = {
      {"LoadDistinctSessionWithUnread",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> found;
         EXPECT_TRUE(s.store().load_distinct_session_with_unread(
             found, std::to_string(room.newest.id) + ",1,2,3"));
         ASSERT_FALSE(found.empty());
         EXPECT_EQ(found.back().session_id_, room.id);
         EXPECT_EQ(found.back().unread_count_, 1);
       }},
  };
  op.left_out = {
      {Suite::kThreads, "part of delete_message()"},
  };
  return op;
}

Operation load_session_with_latestid() {
  Operation op("load_session_with_latestid", Commits::kNothing);
  op.statements = {
      {"SessionsOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_session_with_latestid(rows, "1,2");
       },
       {sessions_of_ids("1,2")}},
  };
  op.calls = {
      {"SessionsOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool any = s.load_session_with_latestid(found, "3,63");
         return text(any, found);
       },
       [](Answers& a) {
         const int rows = a.rows("select session_id,session_type from t_session where latest_id");
         return page_text(first({"room:2:0:0:0:0:0:", "peer:1:0:0:0:0:0:"}, rows));
       },
       {"false, []"}},
  };
  op.flat = {
      {"LoadSessionWithLatestid",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> found;
         EXPECT_TRUE(s.store().load_session_with_latestid(
             found, std::to_string(room.newest.id) + ",1,2,3"));
         ASSERT_EQ(found.size(), 1U);
         EXPECT_EQ(found[0].session_id_, room.id);
       }},
  };
  op.left_out = {
      {Suite::kThreads, "part of delete_message()"},
  };
  return op;
}

Operation get_message_latestid() {
  Operation op("get_message_latestid", Commits::kNothing);
  op.statements = {
      {"LatestOfSession",
       [](CvDbSingleton& s) {
         int64_t id = 0;
         int64_t time = 0;
         s.get_message_latestid("room", 2, id, time);
         s.set_message_latestid("room", 2, 1, 5);
         s.set_message_latestid("room", 2, 0, 5);
       },
       {kNewestMessage, kPointAtAndMove, kPointAt}},
  };
  op.calls = {
      {"NewestOfConversation",
       [](CvDbSingleton& s) {
         int64_t id = -7;
         int64_t time = -7;
         const bool read = s.get_message_latestid("peer", 1, id, time);
         return text(read, id, time);
       },
       [](Answers& a) {
         return a.row(kNewestMessage) ? text(true, 63, 1059) : text(false, -7, -7);
       },
       {"false, -7, -7"}},
  };
  op.flat = {
      {"GetMessageLatestid",
       [](FilledStore& s, const Room& room) {
         int64_t latest = 0;
         int64_t time = 0;
         EXPECT_TRUE(s.store().get_message_latestid(room.id, room.type, latest, time));
         EXPECT_EQ(latest, room.newest.id);
         EXPECT_EQ(time, room.newest.time);
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.left_out = {
      {Suite::kThreads, "part of delete_message()"},
  };
  return op;
}

Operation set_message_latestid() {
  Operation op("set_message_latestid", Commits::kOnce);
  op.calls = {
      {"PointAt",
       [](CvDbSingleton& s) { return text(s.set_message_latestid("room", 2, 1, 100)); },
       [](Answers& a) { return text(a.done("update t_session set latest_id=?,session_time=?")); },
       {"false"}},
  };
  op.flat = {
      {"SetMessageLatestid",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_latestid(room.id, room.type, room.middle.id, kAfterAll));
         EXPECT_EQ(s.session(room, "latest_id,session_time"),
                   std::to_string(room.middle.id) + "|900000");
       }},
  };
  op.left_out = {
      {Suite::kStatements, "with get_message_latestid()"},
      {Suite::kKill, "part of delete_message()"},
  };
  return op;
}

}  // namespace

Operations operations_of_conversation_list_blocks() {
  return {load_session_page(),
          load_session_row(),
          load_messages_of_page(),
          load_message_of_row(),
          load_distinct_session_with_unread(),
          load_session_with_latestid(),
          get_message_latestid(),
          set_message_latestid()};
}

}  // namespace corvan_test
