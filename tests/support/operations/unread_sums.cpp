// Counters: sums over conversations and counts of messages.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::SessionType;

namespace {

OnFilledStore unread_of(const std::vector<SessionType>& kinds, bool with_dnd,
                        const std::string& condition) {
  return [=](FilledStore& s, const Room&) {
    int32_t unread = 0;
    EXPECT_TRUE(s.store().get_cate_unread_count(kinds, unread, with_dnd));
    EXPECT_EQ(unread, 4 * s.count("t_session where " + condition));
  };
}

OnFilledStore unread_and_mentions_of(const std::vector<SessionType>& kinds,
                                     const std::string& condition) {
  return [=](FilledStore& s, const Room&) {
    int32_t unread = 0;
    int32_t mention = 0;
    EXPECT_TRUE(s.store().get_unread_mention_count(kinds, unread, mention));
    const int count = s.count("t_session where " + condition);
    EXPECT_EQ(unread, 4 * count);
    EXPECT_EQ(mention, count);
  };
}

std::function<void(CvDbSingleton&)> by_kind(const std::vector<SessionType>& kinds, bool with_dnd) {
  return [=](CvDbSingleton& s) {
    int32_t unread = 0;
    s.get_cate_unread_count(kinds, unread, with_dnd);
  };
}

Operation get_total_unread_count() {
  Operation op("get_total_unread_count", Commits::kNothing);
  op.statements = {
      {"TotalUnread",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         s.get_total_unread_count(unread);
       },
       {{"select sum(unread_count) from t_session", kSumOfCounters}}},
  };
  op.calls = {
      {"TotalUnread",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_total_unread_count(unread);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count) from t_session");
         return text(rows >= 0, rows > 0 ? 61 : -7);
       },
       {"false, -7"}},
  };
  op.growing = {
      {"GetTotalUnreadCount", kSummed,
       [](FilledStore& s, const Room&) {
         int32_t unread = 0;
         EXPECT_TRUE(s.store().get_total_unread_count(unread));
         EXPECT_EQ(unread, 4 * s.count("t_session"));
       }},
  };
  return op;
}

Operation get_unread_count() {
  Operation op("get_unread_count", Commits::kNothing);
  op.statements = {
      {"UnreadOfSession",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         s.get_unread_count("room", Corvan::CV_GROUP, unread);
       },
       {{"select unread_count from t_session where session_id=? and session_type=?",
         kBySessionKey}}},
  };
  op.calls = {
      {"UnreadOfConversation",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_unread_count("peer", kPeer, unread);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select unread_count from t_session");
         return text(rows >= 0, rows > 0 ? 60 : -7);
       },
       {"false, -7"}},
  };
  op.flat = {
      {"GetUnreadCount",
       [](FilledStore& s, const Room& room) {
         int32_t unread = 0;
         EXPECT_TRUE(s.store().get_unread_count(room.id, room.type, unread));
         EXPECT_EQ(unread, 4);
       }},
  };
  return op;
}

Operation get_message_count() {
  Operation op("get_message_count", Commits::kNothing);
  op.statements = {
      {"MessageCount",
       [](CvDbSingleton& s) {
         int32_t count = 0;
         s.get_message_count("room", Corvan::CV_GROUP, count);
       },
       {{"select count(id) from t_message where session_id=? and session_type=?", kIdsOfSession}}},
  };
  op.calls = {
      {"MessageCount",
       [](CvDbSingleton& s) {
         int32_t count = -7;
         const bool read = s.get_message_count("peer", kPeer, count);
         return text(read, count);
       },
       [](Answers& a) {
         const int rows = a.rows("select count(id) from t_message");
         return text(rows >= 0, rows > 0 ? 60 : -7);
       },
       {"false, -7"}},
  };
  op.flat = {
      {"GetMessageCount",
       [](FilledStore& s, const Room& room) {
         int32_t count = 0;
         EXPECT_TRUE(s.store().get_message_count(room.id, room.type, count));
         EXPECT_EQ(count, kTinyMessages);
       },
       {kTiny}},
  };
  op.growing = {
      {"GetMessageCountOfTheLargest", kCounted,
       [](FilledStore& s, const Room& room) {
         int32_t count = 0;
         EXPECT_TRUE(s.store().get_message_count(room.id, room.type, count));
         EXPECT_EQ(count, room.messages);
       }},
  };
  return op;
}

Operation get_cate_unread_count() {
  Operation op("get_cate_unread_count", Commits::kNothing);
  op.statements = {
      {"UnreadOfAllKinds",
       by_kind({}, true),
       {{"select sum(unread_count) from t_session", kSumOfCounters}}},
      {"UnreadOfAllUnmuted",
       by_kind({}, false),
       {{"select sum(unread_count) from t_session where silence=0", kSumOfCounters}}},
      {"UnreadOfKinds",
       by_kind({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, true),
       {{"select sum(unread_count) from t_session where session_type in(1,2)", kSumOfCounters}}},
      {"UnreadOfOneKind",
       by_kind({Corvan::CV_GROUP}, true),
       {{"select sum(unread_count) from t_session where session_type in(2)", kSumOfOneKind}}},
      {"UnreadOfOneKindUnmuted",
       by_kind({Corvan::CV_GROUP}, false),
       {{"select sum(unread_count) from t_session where silence=0 and session_type in(2)",
         kSumOfCounters}}},
      {"UnreadOfKindsUnmuted",
       by_kind({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, false),
       {{"select sum(unread_count) from t_session where silence=0 and session_type in(1,2)",
         kSumOfCounters}}},
  };
  op.calls = {
      {"UnreadOfKinds",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_cate_unread_count({Corvan::CV_GROUP}, unread, false);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count) from t_session where silence=0 and");
         return text(rows >= 0, rows > 0 ? 1 : -7);
       },
       {"false, -7"}},
      {"UnreadOfAllKinds",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_cate_unread_count({}, unread, true);
         return text(read, unread);
       },
       {},
       {"false, -7"}},
  };
  op.growing = {
      {"GetCateUnreadCount", kSummed, unread_of({}, true, "1")},
      {"GetCateUnreadCountWithoutTheMuted", kSummed, unread_of({}, false, "silence=0")},
      {"GetCateUnreadCountOfOneKind", kSummed,
       unread_of({Corvan::CV_GROUP}, true, "session_type=2")},
      {"GetCateUnreadCountOfTwoKindsWithoutTheMuted", kSummed,
       unread_of(kTwoKinds, false, "session_type in(1,2) and silence=0")},
  };
  return op;
}

Operation get_unread_mention_count() {
  Operation op("get_unread_mention_count", Commits::kNothing);
  op.statements = {
      {"UnreadAndMentions",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         int32_t mention = 0;
         s.get_unread_mention_count({}, unread, mention);
         s.get_unread_mention_count({Corvan::CV_GROUP}, unread, mention);
       },
       {{"select sum(unread_count),sum(mention_count) from t_session", kSumOfCounters},
        {"select sum(unread_count),sum(mention_count) from t_session where session_type in(2)",
         kSumOfOneKind}}},
  };
  op.calls = {
      {"UnreadAndMentions",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         int32_t mention = -7;
         const bool read = s.get_unread_mention_count({}, unread, mention);
         return text(read, unread, mention);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count),sum(mention_count) from t_session");
         return rows > 0 ? text(true, 61, 1) : text(rows == 0, -7, -7);
       },
       {"false, -7, -7"}},
  };
  op.growing = {
      {"GetUnreadMentionCount", kSummed, unread_and_mentions_of({}, "1")},
      {"GetUnreadMentionCountOfTwoKinds", kSummed,
       unread_and_mentions_of(kTwoKinds, "session_type in(1,2)")},
  };
  return op;
}

}  // namespace

Operations operations_of_unread_sums() {
  return {get_total_unread_count(), get_unread_count(), get_message_count(),
          get_cate_unread_count(), get_unread_mention_count()};
}

}  // namespace corvan_test
