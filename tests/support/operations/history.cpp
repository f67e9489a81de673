// Message queries: pages of history.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

namespace {

Text history(const std::string& rest, const QueryPlan& plan) {
  return {kHistoryPage + rest, plan};
}

std::function<void(CvDbSingleton&)> page(int64_t id, bool desc,
                                         const std::vector<std::string>& names) {
  return [=](CvDbSingleton& s) {
    std::vector<MessageResponse> msg;
    s.get_history_message_by_object_name("room", Corvan::CV_GROUP, names, id, 5, msg, desc);
  };
}

// The log line that is written before the text of a page is prepared.
std::string logged(const std::string& rest) {
  return "2 bool Corvan::CvDbSingleton::get_history_message_by_object_name(const std::string &, "
         "Corvan::SessionType, const std::vector<std::string> &, int64_t, int32_t, "
         "std::vector<Corvan::MessageResponse> &, bool): get_history_message_by_object_name: "
         "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid "
         "from t_message where session_id=? and session_type=? and sent_time" +
         rest;
}

// Pages of four messages, which even the tiny conversation can fill.
OnFilledStore history_of_four(bool from_middle, bool desc, const std::vector<std::string>& kinds) {
  return [=](FilledStore& s, const Room& room) {
    std::vector<MessageResponse> page;
    EXPECT_TRUE(s.store().get_history_message_by_object_name(
        room.id, room.type, kinds, from_middle ? room.middle.id : 0, 4, page, desc));
    EXPECT_EQ(page.size(), 4U);
    if (!from_middle && kinds.empty()) {
      EXPECT_EQ(page.front().msg_id_, room.newest.id);
    }
  };
}

// A page of history. `all` is the page if nothing fails.
std::vector<std::string> page_from(Answers& a, bool anchored, const std::vector<std::string>& all) {
  const bool found = a.row(anchored ? "select sent_time from t_message where id=?"
                                    : "select sent_time from t_message where session_id=?");
  // Without the anchor's time the page begins at time 0, or at 1 after the newest message.
  const int rows = a.rows(kHistoryPage);
  return found ? first(all, rows) : std::vector<std::string>{};
}

Operation get_history_message_by_object_name() {
  Operation op("get_history_message_by_object_name", Commits::kNothing);
  op.statements = {
      {"HistoryNewestPage",
       page(0, true, {}),
       {kNewestTime, history("<? order by sent_time desc limit ?", kRowsBefore)}},
      {"HistoryAfterId",
       page(1, false, {}),
       {kSendTime, history(">? order by sent_time asc limit ?", kRowsAfter)}},
      {"HistoryNegativeId",
       page(-1, false, {}),
       {history(">? order by sent_time asc limit ?", kRowsAfter)}},
      {"HistoryOfKinds",
       page(1, true, {"A", "", "B"}),
       {kSendTime,
        history("<? and object_name in('A','B') order by sent_time desc limit ?", kRowsBefore)}},
      {"HistoryOfEmptyKind",
       page(1, true, {""}),
       {kSendTime, history("<? order by sent_time desc limit ?", kRowsBefore)}},
  };
  op.calls = {
      {"HistoryOfKind",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_history_message_by_object_name(
             "peer", kPeer, {"CV:TxtMsg", "CV:Other"}, 34, 3, page, true);
         return text(found, page);
       },
       [](Answers& a) {
         return page_text(
             page_from(a, true, {peer_message(29), peer_message(28), peer_message(27)}));
       },
       {"false, []",
        {logged("<? and object_name in('CV:TxtMsg','CV:Other') order by sent_time desc limit ?")}}},
      {"HistoryBehindARecord",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page(1);
         const bool found =
             s.get_history_message_by_object_name("room", kRoom, {}, 1, 5, page, true);
         return text(found, page.size() == 1);
       },
       {},
       {"false, true", {logged("<? order by sent_time desc limit ?")}}},
  };
  op.flat = {
      {"HistoryNewestPage", history_of_four(false, true, {})},
      {"HistoryPageBefore", history_of_four(true, true, {})},
      {"HistoryPageAfter", history_of_four(true, false, {})},
      {"HistoryNewestPageOfOneKind", history_of_four(false, true, {"CV:TxtMsg"})},
      {"HistoryNewestPageOfTwoKinds", history_of_four(false, true, {"CV:TxtMsg", "CV:ImgMsg"})},
  };
  op.left_out = {
      {Suite::kThreads, "as get_history_message_by_time()"},
  };
  return op;
}

Operation get_history_message_by_time() {
  Operation op("get_history_message_by_time", Commits::kNothing);
  op.statements = {
      {"HistoryByTime",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_history_message_by_time("room", Corvan::CV_GROUP, "A", 1, 5, msg, false);
         s.get_history_message_by_time("room", Corvan::CV_GROUP, "", 1, 5, msg, false);
       },
       {kSendTime, history(">? and object_name in('A') order by sent_time asc limit ?", kRowsAfter),
        kSendTime, history(">? order by sent_time asc limit ?", kRowsAfter)}},
  };
  op.calls = {
      {"HistoryFromNewest",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_history_message_by_time("room", kRoom, "", 0, 2, page, true);
         return text(found, page);
       },
       [](Answers& a) {
         return page_text(page_from(a, false, {kMessage3, kMessage2}));
       },
       {"false, []", {logged("<? order by sent_time desc limit ?")}}},
      {"HistoryByTimeBehindARecord",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page(1);
         const bool found = s.get_history_message_by_time("room", kRoom, "", 1, 5, page, true);
         return text(found, page.size() == 1);
       },
       {},
       {"false, true", {logged("<? order by sent_time desc limit ?")}}},
  };
  op.flat = {
      {"HistoryPageBeforeOfOneKind",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_TRUE(s.store().get_history_message_by_time(room.id, room.type, "CV:VcMsg",
                                                           room.newest.id, 2, page, true));
         EXPECT_EQ(page.size(), 2U);
       }},
  };
  op.growing = {
      {"HistoryWithoutALimit", "the messages of the conversation, which it returns",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_TRUE(
             s.store().get_history_message_by_time(room.id, room.type, "", 0, -1, page, true));
         EXPECT_EQ(page.size(), static_cast<std::size_t>(room.messages));
       }},
      {"HistoryPageOfAKindThatIsNotThere", kPassed,
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_FALSE(s.store().get_history_message_by_time(room.id, room.type, "CV:FileMsg", 0, 4,
                                                            page, true));
       }},
  };
  return op;
}

Operation get_mention_message() {
  Operation op("get_mention_message", Commits::kNothing);
  op.statements = {
      {"MentionList",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_mention_message("room", Corvan::CV_GROUP, msg);
       },
       {{"select id,content,read_status,sent_time,object_name,sender,server_uid from t_message where session_id=? and session_type=? and is_mention=1 and direction=2 order by sent_time desc limit 10",
         kMentionsOfSession}}},
  };
  op.calls = {
      {"Mentions",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_mention_message("room", kRoom, page);
         return text(found, page);
       },
       [](Answers& a) {
         a.run("select id,content,read_status,sent_time,object_name,sender,server_uid");
         return page_text({});
       },
       {"false, []"}},
  };
  op.flat = {
      {"GetMentionMessage",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_TRUE(s.store().get_mention_message(room.id, room.type, list));
         EXPECT_EQ(list.size(), 10U);
         EXPECT_EQ(list.back().msg_id_, room.newest.id);
       },
       {kOlder}},
      {"GetMentionMessageWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_FALSE(s.store().get_mention_message(room.id, room.type, list));
       },
       {kLargest, kTiny, kOwn, kReceived}},
  };
  op.growing = {
      {"GetMentionMessageAmongReadOnes", kPassed,
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_FALSE(s.store().get_mention_message(room.id, room.type, list));
       },
       kOlderRead},
  };
  return op;
}

Operation get_matched_message() {
  Operation op("get_matched_message", Commits::kNothing);
  op.statements = {
      {"MatchedMessage",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_matched_message("room", Corvan::CV_GROUP, 3, 2, 2, msg);
       },
       {kBegin, kSendTime, history("<? order by sent_time desc limit ?", kRowsBefore), kSendTime,
        history(">? order by sent_time asc limit ?", kRowsAfter), kCommit}},
  };
  op.calls = {
      // The second anchor, 200, is not the id of a message, so the newer half begins with the
      // oldest messages of the conversation. They are inserted at the front, newest first.
      {"Matched",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_matched_message("room", kRoom, 3, 1, 1, page);
         return text(found, page);
       },
       [](Answers& a) {
         a.begin();
         std::vector<std::string> span = page_from(a, true, {kMessage2});
         // If the older half is empty, the second anchor is message 2.
         const bool second_anchor = span.empty();
         const bool anchored = a.row("select sent_time from t_message where id=?");
         const std::vector<std::string> newer =
             second_anchor && anchored ? std::vector<std::string>{kMessage3}
                                       : std::vector<std::string>{kMessage1, kMessage2};
         for (const std::string& each : first(newer, a.rows(kHistoryPage))) {
           span.insert(span.begin(), each);
         }
         a.commit();
         return page_text(span);
       },
       {"false, []",
        {logged("<? order by sent_time desc limit ?"),
         logged(">? order by sent_time asc limit ?")}}},
  };
  op.flat = {
      {"GetMatchedMessage",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> span;
         EXPECT_TRUE(s.store().get_matched_message(room.id, room.type, room.middle.id, 3, 2, span));
         EXPECT_EQ(span.size(), 6U);
       }},
  };
  return op;
}

}  // namespace

Operations operations_of_history() {
  return {get_history_message_by_object_name(), get_history_message_by_time(),
          get_mention_message(), get_matched_message()};
}

}  // namespace corvan_test
