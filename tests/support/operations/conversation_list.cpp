// Conversation list.

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::SessionInfo;
using Corvan::SessionType;

namespace {

const std::vector<SessionType> kAllKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP,
                                            Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
                                            Corvan::CV_SYSTEM};

OnFilledStore first_page(const std::vector<SessionType>& kinds) {
  return [=](FilledStore& s, const Room&) {
    std::vector<SessionInfo> page;
    EXPECT_TRUE(s.store().get_session_list_by_page(kinds, 0, kPage, page));
    EXPECT_EQ(page.size(), std::size_t{kPage});
    for (const SessionInfo& info : page) EXPECT_EQ(info.message_.content_, "text");
  };
}

// The page after a first page of this length. `is_top`: the first page ends among the pinned.
OnFilledStore second_page(int first, bool is_top) {
  return [=](FilledStore& s, const Room&) {
    std::vector<SessionInfo> page;
    EXPECT_TRUE(s.store().get_session_list_by_page(kTwoKinds, 0, first, page));
    EXPECT_EQ(page.back().is_top_ != 0, is_top);
    const int64_t last = page.back().session_time;
    page.clear();
    EXPECT_TRUE(s.store().get_session_list_by_page(kTwoKinds, last, kPage, page));
    EXPECT_EQ(page.size(), std::size_t{kPage});
  };
}

Operation get_session_list_by_page() {
  Operation op("get_session_list_by_page", Commits::kNothing);
  op.statements = {
      {"FirstPage",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, 9, page);
       },
       {session_page("1,2)", kListFromTop), messages_of_page("3")}},
      {"PageAfterUnpinned",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_GROUP}, 0, 1, page);
         take_ledger();
         s.get_session_list_by_page({Corvan::CV_GROUP}, 7, 1, page);
       },
       {session_page("2) and session_time<? and is_top=0", kListAfterPinned)}},
      {"PageAfterPinned",
       [](CvDbSingleton& s) {
         s.set_is_top("room", Corvan::CV_GROUP, true, false);
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_GROUP}, 0, 1, page);
         take_ledger();
         s.get_session_list_by_page({Corvan::CV_GROUP}, 7, 1, page);
       },
       {session_page("2) and ((session_time<? and is_top=1) or is_top=0)", kListFromTop)}},
      {"PageOfNoKind",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({}, 0, 9, page);
       },
       {session_page(")", kEmptyList)}},
  };
  op.calls = {
      {"List",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         const bool found = s.get_session_list_by_page(
             {Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM}, 0, 9, page);
         return text(found, page);
       },
       [](Answers& a) {
         const int rows = a.rows(kSessionPage);
         if (rows <= 0) return text(false, "[]");
         // The messages arrive by id: the one of "room" first.
         const int messages = a.rows(kMessagesOfPage);
         std::vector<std::string> all = {kPinnedEntry, kPeerEntry, kRoomEntry};
         if (messages < 1) all[2].erase(all[2].size() - 5);
         // A page with "room" also has "peer", whose message comes second.
         if (messages < (rows == 3 ? 2 : 1)) all[1].erase(all[1].size() - 5);
         return text(true, first(all, rows));
       },
       {"false, []"}},
  };
  op.flat = {
      {"ListFirstPageOfOneKind", first_page({Corvan::CV_GROUP}), {kTiny}, 2 * kPage},
      {"ListFirstPageOfTwoKinds", first_page(kTwoKinds), {kTiny}, kPage},
      {"ListFirstPageOfAllKinds", first_page(kAllKinds), {kTiny}, kPage},
      {"ListPageAmongThePinned", second_page(3, true), {kTiny}, 2 * kPage},
      {"ListPagePastThePinned", second_page(kPage, false), {kTiny}, kPage},
  };
  op.growing = {
      {"ListPageOfKindsThatAreNotThere", kSessionsPassed,
       [](FilledStore& s, const Room&) {
         std::vector<SessionInfo> page;
         EXPECT_FALSE(s.store().get_session_list_by_page(kNoKinds, 0, kPage, page));
       }},
  };
  return op;
}

Operation get_session() {
  Operation op("get_session", Commits::kNothing);
  op.statements = {
      {"GetSession",
       [](CvDbSingleton& s) {
         SessionInfo info;
         info.session_id_ = "room";
         info.session_type_ = 2;
         s.get_session(info);
       },
       {{"select title,draft,is_top,session_time,unread_count,mention_count,silence,latest_id from t_session where session_id=? and session_type=?",
         kBySessionKey},
        {"select content,object_name,sender,direction,read_status,sent_status,sent_time,server_uid from t_message where id=?",
         kByRowId}}},
  };
  op.calls = {
      {"GetSession",
       [](CvDbSingleton& s) {
         SessionInfo info;
         info.session_id_ = "room";
         info.session_type_ = kRoom;
         const bool found = s.get_session(info);
         return text(found, info);
       },
       [](Answers& a) {
         SessionInfo kept;
         kept.session_id_ = "room";
         kept.session_type_ = kRoom;
         if (!a.row("select title,draft,is_top,session_time")) return text(false, kept);
         const bool message = a.row("select content,object_name,sender,direction,");
         return text(true, message ? kRoomEntry : "room:2:0:300:1:1:3:");
       },
       {"false, room:2:0:0:0:0:0:"}},
      {"GetSessionTitle",
       [](CvDbSingleton& s) {
         SessionInfo info;
         info.session_id_ = "room";
         info.session_type_ = 2;
         info.title_ = "kept";
         const bool found = s.get_session(info);
         return text(found, info.title_);
       },
       {},
       {"false, kept"}},
  };
  op.flat = {
      {"GetSession",
       [](FilledStore& s, const Room& room) {
         SessionInfo info;
         info.session_id_ = room.id;
         info.session_type_ = room.type;
         EXPECT_TRUE(s.store().get_session(info));
         EXPECT_EQ(info.message_.server_uid_, room.newest.uid);
       }},
  };
  return op;
}

}  // namespace

Operations operations_of_conversation_list() {
  return {get_session_list_by_page(), get_session()};
}

}  // namespace corvan_test
