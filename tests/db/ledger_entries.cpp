#include "tests/db/ledger_entries.h"

#include <memory>
#include <ostream>

#include "tests/support/store_test.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

namespace {

// Texts that several operations hand over.
const char* const kByServerUid = "select 1 from t_message where server_uid=? limit 1";
const char* const kByClientKey =
    "select id,server_uid from t_message where session_id=? and session_type=? and client_uid=? and sender=? limit 1";
const char* const kInsertMessage =
    "insert into t_message(session_id,session_type,object_name,content,sender,direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) values(?,?,?,?,?,?,?,?,?,?,?,?)";
const char* const kComplete =
    "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?";
const char* const kSessionExists =
    "select 1 from t_session where session_id=? and session_type=? limit 1";
const char* const kReadSession =
    "select session_time,latest_id,unread_count,mention_count from t_session where session_id=? and session_type=?";
const char* const kMoveSession =
    "update t_session set session_time=?,unread_count=?,mention_count=?,latest_id=? where session_id=? and session_type=?";
const char* const kAddSession =
    "insert into t_session(session_id,session_type,session_time,title,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)";
const char* const kSendTime = "select sent_time from t_message where id=?";
const char* const kReadTime =
    "select read_time from t_session where session_id=? and session_type=?";
const char* const kMarkRead =
    "update t_message set read_status=(case read_status when 0 then 1 else read_status end),is_mention=0 where session_id=? and session_type=? and sent_time>? and direction=1";
const char* const kReceiptTime =
    "select receipt_time from t_session where session_id=? and session_type=?";
const char* const kMessageState =
    "select session_id,session_type,read_status,is_mention,sent_time from t_message where id=?";
const char* const kNewestMessage =
    "select id,sent_time from t_message where session_id=? and session_type=? order by sent_time desc limit 1";
const char* const kDeleteOfSession = "delete from t_message where session_id=? and session_type=?";
const char* const kNewestTime =
    "select sent_time from t_message where session_id=? and session_type=? order by sent_time desc limit 1";
const char* const kNewestReceivedTime =
    "select sent_time from t_message where session_id=? and session_type=? and direction=1 order by sent_time desc limit 1";
const char* const kHistoryPage =
    "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid from t_message where session_id=? and session_type=? and sent_time";
const char* const kSessionPage =
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,silence,latest_id from t_session where session_type in(";
const char* const kSessionPageOrder = " order by is_top desc,session_time desc limit ?";
const char* const kMessagesOfPage =
    "select session_id,session_type,content,object_name,sender,direction,read_status,sent_status,sent_time,server_uid from t_message where id in(";
const char* const kOneSession =
    "select title,draft,is_top,session_time,unread_count,mention_count,silence,latest_id from t_session where session_id=? and session_type=?";
const char* const kOneMessage =
    "select content,object_name,sender,direction,read_status,sent_status,sent_time,server_uid from t_message where id=?";
const char* const kUnreadOfIds =
    "select session_id,session_type,read_status,is_mention,sent_time from t_message where id in(";
const char* const kSessionsOfIds =
    "select session_id,session_type from t_session where latest_id in(";
const char* const kSyncTimes = "select receive_time,sent_time from t_sync where user_id=?";
const char* const kWriteSyncTimes =
    "replace into t_sync(user_id,receive_time,sent_time) values(?,?,?)";
const char* const kRecount =
    "select sum(case read_status when 0 then 1 else 0 end),sum(is_mention) from t_message where session_id=? and session_type=? and sent_time>? and read_status=0 and direction=2";

std::string history(const std::string& rest) {
  return kHistoryPage + rest;
}

}  // namespace

void PrintTo(const LedgerEntry& entry, std::ostream* out) {
  *out << entry.name;
}

std::vector<LedgerEntry> ledger_of_saving() {
  return {
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
       {"insert into t_message(session_id,session_type,object_name,sender,content,direction,read_status,sent_status,sent_time,client_uid,server_uid) values(?,?,?,?,?,?,?,?,?,?,?)"}},
      {"ExistByServerUid", [](CvDbSingleton& s) { s.is_message_exist("s1"); }, {kByServerUid}},
      {"ExistByEmptyServerUid", [](CvDbSingleton& s) { s.is_message_exist(""); }, {}},
      {"ExistByClientKey",
       [](CvDbSingleton& s) {
         int64_t id = 0;
         std::string uid;
         s.is_message_exist(5, "me", "room", 2, id, uid);
         s.is_message_exist(0, "me", "room", 2, id, uid);
       },
       {kByClientKey}},
      {"ExistByTime",
       [](CvDbSingleton& s) { s.is_message_exist("room", Corvan::CV_GROUP, int64_t{5}); },
       {"select 1 from t_message where session_id=? and session_type=? and sent_time>? and (direction=1 or (direction=0 and sent_status=3)) limit 1"}},
      {"ExistByServerUidList",
       [](CvDbSingleton& s) {
         std::vector<std::string> uids;
         s.is_message_exist("'s1','s2'", uids);
       },
       {"select server_uid from t_message where server_uid in('s1','s2')"}},
      {"ExistBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         s.is_message_exist(values);
       },
       {kByClientKey}},
      {"CompleteOne",
       [](CvDbSingleton& s) { s.set_send_time_for_dup_msg(1, 5, "u"); },
       {kComplete}},
      {"CompleteBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = 1;
         s.set_send_time_for_dup_msg(values);
       },
       {kComplete}},
  };
}

std::vector<LedgerEntry> ledger_of_state() {
  return {
      {"SetSendTimeAccepted",
       [](CvDbSingleton& s) { s.set_send_time(2, 999, "u", "room", Corvan::CV_GROUP, 0); },
       {kBegin, "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?",
        kReadSession,
        "update t_session set session_time=?,latest_id=? where session_id=? and session_type=?",
        kCommit}},
      {"SetSendTimeOlder",
       [](CvDbSingleton& s) { s.set_send_time(2, 1, "", "room", Corvan::CV_GROUP, 0); },
       {kBegin, "update t_message set sent_status=0,sent_time=? where id=?", kReadSession,
        kCommit}},
      {"SetSendTimeFailedWithoutTime",
       [](CvDbSingleton& s) { s.set_send_time(2, 0, "", "room", Corvan::CV_GROUP, 7); },
       {kBegin, "update t_message set sent_status=2 where id=?", kCommit}},
      {"SetSendtimeUidOnly",
       [](CvDbSingleton& s) { s.set_sendtime(2, 0, "u", -1); },
       {"update t_message set sent_status=2,server_uid=? where id=?"}},
      {"UpdateSentStatus",
       [](CvDbSingleton& s) { s.update_sent_status(2, 1); },
       {"update t_message set sent_status=? where id=?"}},
      {"SetReadStatusRead",
       [](CvDbSingleton& s) { s.set_read_status(1, 1); },
       {kBegin, kMessageState, "update t_message set read_status=?,is_mention=0 where id=?",
        "update t_session set unread_count=unread_count-1,mention_count=mention_count-1 where session_id=? and session_type=?",
        kCommit}},
      {"SetReadStatusUnread",
       [](CvDbSingleton& s) { s.set_read_status(2, 0); },
       {kBegin, kMessageState, "update t_message set read_status=?,is_mention=0 where id=?",
        "update t_session set unread_count=unread_count+1 where session_id=? and session_type=?",
        kCommit}},
      {"SetReadStatusNoChange",
       [](CvDbSingleton& s) { s.set_read_status(2, 3); },
       {kBegin, kMessageState, "update t_message set read_status=?,is_mention=0 where id=?",
        kCommit}},
      {"SetReadStatusUnknown",
       [](CvDbSingleton& s) { s.set_read_status(99, 1); },
       {kBegin, kMessageState, kCommit}},
      {"ReceiptForward",
       [](CvDbSingleton& s) { s.update_message_receipt_status("room", Corvan::CV_GROUP, 500); },
       {kReceiptTime,
        "update t_message set sent_status=3 where session_id=? and session_type=? and sent_time>? and sent_time<=? and direction=0 and sent_status=0",
        "update t_session set receipt_time=? where session_id=? and session_type=?"}},
      {"ReceiptNotLater",
       [](CvDbSingleton& s) { s.update_message_receipt_status("room", Corvan::CV_GROUP, 0); },
       {kReceiptTime,
        "update t_message set sent_status=3 where session_id=? and session_type=? and sent_time<=? and direction=0 and sent_status=0"}},
      {"SetContent",
       [](CvDbSingleton& s) { s.set_message_content(1, "c", ""); },
       {"update t_message set content=? where id=?"}},
      {"SetContentAndKind",
       [](CvDbSingleton& s) { s.set_message_content(1, "c", "CV:New"); },
       {"update t_message set content=?,object_name=?,is_mention=0 where id=?"}},
      {"ClientUidOfSession",
       [](CvDbSingleton& s) {
         int64_t uid = 0;
         s.get_client_uid("room", Corvan::CV_GROUP, uid);
       },
       {"select client_uid from t_message where session_id=? and session_type=? and sent_status=0 order by sent_time desc limit 1"}},
      {"ClientUidOfMessage",
       [](CvDbSingleton& s) {
         int64_t uid = 0;
         s.get_client_uid(1, uid);
       },
       {"select client_uid from t_message where id=?"}},
      {"CommonInt",
       [](CvDbSingleton& s) {
         s.common_message_int(1, 5, "update t_message set sent_status=? where id=?");
       },
       {"update t_message set sent_status=? where id=?"}},
      {"CommonText",
       [](CvDbSingleton& s) {
         s.common_message_text(1, "x", "update t_message set content=? where id=?");
       },
       {"update t_message set content=? where id=?"}},
  };
}

std::vector<LedgerEntry> ledger_of_deleting() {
  const auto unread_of = [](const std::string& ids) { return kUnreadOfIds + ids + ")"; };
  const auto sessions_of = [](const std::string& ids) { return kSessionsOfIds + ids + ")"; };
  return {
      {"DeleteByIds",
       [](CvDbSingleton& s) {
         s.delete_message(std::vector<int64_t>{1, 0, 3, -4, 1});
       },
       {kBegin, unread_of("1,3,1"), sessions_of("1,3,1"),
        "delete from t_message where id in(1,3,1)",
        "update t_session set unread_count=unread_count-1,mention_count=mention_count-1 where session_id=? and session_type=?",
        kNewestMessage,
        "update t_session set latest_id=?,session_time=? where session_id=? and session_type=?",
        kCommit}},
      {"DeleteByNoIds",
       [](CvDbSingleton& s) { s.delete_message(std::vector<int64_t>{}); },
       {kBegin, unread_of(""), sessions_of(""), "delete from t_message where id in()", kCommit}},
      {"DeleteByServerUids",
       [](CvDbSingleton& s) {
         s.delete_message("room", Corvan::CV_GROUP, {"s1", "x"});
       },
       {"delete from t_message where server_uid in('s1','x')", kNewestMessage,
        "update t_session set latest_id=?,session_time=? where session_id=? and session_type=?"}},
      {"DeleteByServerUidsLeavingNone",  // the empty uid is that of message 3
       [](CvDbSingleton& s) {
         s.delete_message("room", Corvan::CV_GROUP, {"s1", "", "s2"});
       },
       {"delete from t_message where server_uid in('s1','','s2')", kNewestMessage,
        "update t_session set latest_id=? where session_id=? and session_type=?"}},
      {"DeleteByServerUidsRefused",
       [](CvDbSingleton& s) { s.delete_message("room", Corvan::CV_GROUP, {"it's"}); },
       {"delete from t_message where server_uid in('it's')"}},
      {"DeleteOfSession",
       [](CvDbSingleton& s) { s.delete_message("room", 2); },
       {kDeleteOfSession}},
      {"ClearMessage",
       [](CvDbSingleton& s) { s.clear_message("room", Corvan::CV_GROUP, false); },
       {kDeleteOfSession,
        "update t_session set latest_id=? where session_id=? and session_type=?"}},
      {"ClearMessageClean",
       [](CvDbSingleton& s) { s.clear_message("room", Corvan::CV_GROUP, true); },
       {kDeleteOfSession, "update t_session set latest_id=? where session_id=? and session_type=?",
        "VACUUM"}},
      {"ClearByTimestamp",
       [](CvDbSingleton& s) { s.clear_message_by_timestamp(5, false); },
       {"delete from t_message where sent_time<?"}},
      {"ClearByTimestampClean",
       [](CvDbSingleton& s) { s.clear_message_by_timestamp(5, true); },
       {"delete from t_message where sent_time<?", "VACUUM"}},
  };
}

std::vector<LedgerEntry> ledger_of_queries() {
  const auto page = [](int64_t id, bool desc, const std::vector<std::string>& names) {
    return [=](CvDbSingleton& s) {
      std::vector<MessageResponse> msg;
      s.get_history_message_by_object_name("room", Corvan::CV_GROUP, names, id, 5, msg, desc);
    };
  };
  const auto newest = [](int32_t type) {
    return [=](CvDbSingleton& s) {
      int64_t time = 0;
      s.get_max_time(time, Corvan::CV_GROUP, "room", type);
      s.get_max_message_id(Corvan::CV_GROUP, "room", type);
    };
  };
  return {
      {"MessageById",
       [](CvDbSingleton& s) {
         MessageResponse msg;
         s.get_message_by_id(msg);
       },
       {"select session_id,session_type,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid from t_message where id=?"}},
      {"MessageByUid",
       [](CvDbSingleton& s) {
         MessageResponse msg;
         s.get_message_by_uid(msg);
       },
       {"select session_id,session_type,content,direction,read_status,sent_time,object_name,sent_status,sender,id from t_message where server_uid=?"}},
      {"MessageStateById",
       [](CvDbSingleton& s) {
         std::string id;
         int32_t type = 0;
         bool unread = false;
         bool mention = false;
         int64_t time = 0;
         s.get_message_by_id(1, id, type, unread, mention, time);
       },
       {kMessageState}},
      {"HistoryNewestPage",
       page(0, true, {}),
       {kNewestTime, history("<? order by sent_time desc limit ?")}},
      {"HistoryAfterId",
       page(1, false, {}),
       {kSendTime, history(">? order by sent_time asc limit ?")}},
      {"HistoryNegativeId", page(-1, false, {}), {history(">? order by sent_time asc limit ?")}},
      {"HistoryOfKinds",
       page(1, true, {"A", "", "B"}),
       {kSendTime, history("<? and object_name in('A','B') order by sent_time desc limit ?")}},
      {"HistoryOfEmptyKind",
       page(1, true, {""}),
       {kSendTime, history("<? order by sent_time desc limit ?")}},
      {"HistoryByTime",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_history_message_by_time("room", Corvan::CV_GROUP, "A", 1, 5, msg, false);
         s.get_history_message_by_time("room", Corvan::CV_GROUP, "", 1, 5, msg, false);
       },
       {kSendTime, history(">? and object_name in('A') order by sent_time asc limit ?"), kSendTime,
        history(">? order by sent_time asc limit ?")}},
      {"MentionList",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_mention_message("room", Corvan::CV_GROUP, msg);
       },
       {"select id,content,read_status,sent_time,object_name,sender,server_uid from t_message where session_id=? and session_type=? and is_mention=1 and direction=2 order by sent_time desc limit 10"}},
      {"MatchedMessage",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> msg;
         s.get_matched_message("room", Corvan::CV_GROUP, 3, 2, 2, msg);
       },
       {kBegin, kSendTime, history("<? order by sent_time desc limit ?"), kSendTime,
        history(">? order by sent_time asc limit ?"), kCommit}},
      {"NewestOfAll",
       newest(2),
       {kNewestTime,
        "select id from t_message where session_id=? and session_type=? order by id desc limit 1"}},
      {"NewestReceived",
       newest(1),
       {kNewestReceivedTime,
        "select id from t_message where session_id=? and session_type=? and direction=1 order by id desc limit 1"}},
      {"NewestSent",
       newest(0),
       {"select sent_time from t_message where session_id=? and session_type=? and sent_status=0 order by sent_time desc limit 1",
        "select id from t_message where session_id=? and session_type=? and sent_status=0 order by id desc limit 1"}},
      {"SendTime", [](CvDbSingleton& s) { s.get_send_time(1); }, {kSendTime}},
      {"SendTimeOfNone", [](CvDbSingleton& s) { s.get_send_time(0); }, {}},
      {"ReadTime",
       [](CvDbSingleton& s) {
         int64_t time = 0;
         s.get_readtime("room", 2, time);
       },
       {kReadTime}},
      {"MarkRead",
       [](CvDbSingleton& s) { s.update_message_status("room", 2); },
       {kReadTime, kMarkRead}},
  };
}

std::vector<LedgerEntry> ledger_of_sessions() {
  return {
      {"SessionExists", [](CvDbSingleton& s) { s.is_session_exist("room", 2); }, {kSessionExists}},
      {"AddSession",
       [](CvDbSingleton& s) { s.add_session("new", Corvan::CV_GROUP, 1, 2, "", 3, 4); },
       {kAddSession}},
      {"SetSessionTime",
       [](CvDbSingleton& s) { s.set_session_time("room", Corvan::CV_GROUP, 999, "", 1, 1, 1, 0); },
       {kReadSession, kMoveSession}},
      {"SetIsTop",
       [](CvDbSingleton& s) { s.set_is_top("room", Corvan::CV_GROUP, true, false); },
       {kSessionExists, "update t_session set is_top=? where session_id=? and session_type=?"}},
      {"SetIsTopOfMissing",
       [](CvDbSingleton& s) {
         s.set_is_top("new", Corvan::CV_GROUP, true, false);
         s.set_is_top("new", Corvan::CV_GROUP, true, true);
       },
       {kSessionExists, kSessionExists,
        "insert into t_session(is_top,session_time,session_id,session_type,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)"}},
      {"SetDraft",
       [](CvDbSingleton& s) { s.set_message_draft("room", Corvan::CV_GROUP, "d"); },
       {kSessionExists,
        "update t_session set draft=?,session_time=? where session_id=? and session_type=?"}},
      {"ClearDraft",
       [](CvDbSingleton& s) { s.set_message_draft("room", Corvan::CV_GROUP, ""); },
       {kSessionExists, "update t_session set draft=? where session_id=? and session_type=?"}},
      {"SetDraftOfMissing",
       [](CvDbSingleton& s) {
         s.set_message_draft("new", Corvan::CV_GROUP, "");
         s.set_message_draft("new", Corvan::CV_GROUP, "d");
       },
       {kSessionExists, kSessionExists,
        "insert into t_session(draft,session_id,session_type,session_time,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?,?)"}},
      {"GetDraft",
       [](CvDbSingleton& s) {
         std::string draft;
         s.get_message_draft("room", Corvan::CV_GROUP, draft);
       },
       {"select draft_message from t_session where session_id=? and session_type=?"}},
      {"SetSilence",
       [](CvDbSingleton& s) { s.set_silence("room", Corvan::CV_GROUP, 1); },
       {"update t_session set silence=? where session_id=? and session_type=?"}},
      {"GetSilence",
       [](CvDbSingleton& s) {
         int32_t status = 0;
         s.get_silence("room", Corvan::CV_GROUP, status);
       },
       {"select silence from t_session where session_id=? and session_type=?"}},
      {"RemoveSession",
       [](CvDbSingleton& s) { s.remove_session("room", Corvan::CV_GROUP); },
       {"delete from t_session where session_id=? and session_type=?", kReadTime, kMarkRead}},
      {"ClearSession",
       [](CvDbSingleton& s) {
         s.clear_session({Corvan::CV_GROUP, Corvan::SessionType(9), Corvan::CV_SYSTEM});
       },
       {kBegin, "delete from t_session where session_type in(2,5)",
        "delete from t_message where session_type in(2,5)", kCommit}},
      {"ClearSessionOfOneKind",
       [](CvDbSingleton& s) { s.clear_session({Corvan::CV_GROUP}); },
       {kBegin, "delete from t_session where session_type in(2)",
        "delete from t_message where session_type in(2)", kCommit}},
      {"ClearNoSession",
       [](CvDbSingleton& s) { s.clear_session({}); },
       {kBegin, "delete from t_session where session_type in()",
        "delete from t_message where session_type in()", kCommit}},
      {"CommonSessionOperation",
       [](CvDbSingleton& s) {
         s.common_session_operation(
             "room", 2, "update t_session set title='t' where session_id=? and session_type=?");
       },
       {"update t_session set title='t' where session_id=? and session_type=?"}},
  };
}

std::vector<LedgerEntry> ledger_of_session_list() {
  return {
      {"FirstPage",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, 9, page);
       },
       {kSessionPage + std::string("1,2)") + kSessionPageOrder,
        kMessagesOfPage + std::string("3)")}},
      {"PageAfterUnpinned",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_GROUP}, 0, 1, page);
         take_ledger();
         s.get_session_list_by_page({Corvan::CV_GROUP}, 7, 1, page);
       },
       {kSessionPage + std::string("2) and session_time<? and is_top=0") + kSessionPageOrder}},
      {"PageAfterPinned",
       [](CvDbSingleton& s) {
         s.set_is_top("room", Corvan::CV_GROUP, true, false);
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({Corvan::CV_GROUP}, 0, 1, page);
         take_ledger();
         s.get_session_list_by_page({Corvan::CV_GROUP}, 7, 1, page);
       },
       {kSessionPage + std::string("2) and ((session_time<? and is_top=1) or is_top=0)") +
        kSessionPageOrder}},
      {"PageOfNoKind",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         s.get_session_list_by_page({}, 0, 9, page);
       },
       {kSessionPage + std::string(")") + kSessionPageOrder}},
      {"GetSession",
       [](CvDbSingleton& s) {
         SessionInfo info;
         info.session_id_ = "room";
         info.session_type_ = 2;
         s.get_session(info);
       },
       {kOneSession, kOneMessage}},
      {"LoadSessionWithoutTime",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         std::string kinds = "2";
         s.load_session(rows, kinds, -1, 5, false);
       },
       {kSessionPage + std::string("2)") + kSessionPageOrder}},
      {"LoadPagesOfSeveralKinds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         std::string kinds = "1,2";
         s.load_session(rows, kinds, 7, 5, false);
         s.load_session(rows, kinds, 7, 5, true);
       },
       {kSessionPage + std::string("1,2) and session_time<? and is_top=0") + kSessionPageOrder,
        kSessionPage + std::string("1,2) and ((session_time<? and is_top=1) or is_top=0)") +
            kSessionPageOrder}},
      {"LoadMessages",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_message(rows, "1,2");
       },
       {kMessagesOfPage + std::string("1,2)")}},
      {"UnreadOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_distinct_session_with_unread(rows, "1,2");
       },
       {kUnreadOfIds + std::string("1,2)")}},
      {"SessionsOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> rows;
         s.load_session_with_latestid(rows, "1,2");
       },
       {kSessionsOfIds + std::string("1,2)")}},
      {"LatestOfSession",
       [](CvDbSingleton& s) {
         int64_t id = 0;
         int64_t time = 0;
         s.get_message_latestid("room", 2, id, time);
         s.set_message_latestid("room", 2, 1, 5);
         s.set_message_latestid("room", 2, 0, 5);
       },
       {kNewestMessage,
        "update t_session set latest_id=?,session_time=? where session_id=? and session_type=?",
        "update t_session set latest_id=? where session_id=? and session_type=?"}},
  };
}

std::vector<LedgerEntry> ledger_of_counters() {
  const auto by_kind = [](const std::vector<Corvan::SessionType>& kinds, bool with_dnd) {
    return [=](CvDbSingleton& s) {
      int32_t unread = 0;
      s.get_cate_unread_count(kinds, unread, with_dnd);
    };
  };
  const auto by_value = [](int32_t unread, int32_t mention) {
    return [=](CvDbSingleton& s) { s.set_unread_by_value("room", 2, unread, mention); };
  };
  return {
      {"LowerUnread",
       by_value(12, 0),
       {"update t_session set unread_count=unread_count-12 where session_id=? and session_type=?"}},
      {"LowerUnreadAndMention",
       by_value(1, 34),
       {"update t_session set unread_count=unread_count-1,mention_count=mention_count-34 where session_id=? and session_type=?"}},
      {"RaiseUnread",
       by_value(-3, -1),
       {"update t_session set unread_count=unread_count+1 where session_id=? and session_type=?"}},
      {"LowerByNothing", by_value(0, 5), {}},
      {"SyncUnread",
       [](CvDbSingleton& s) { s.sync_unread("room", 2, 5); },
       {kRecount,
        "update t_session set unread_count=?,mention_count=?,read_time=? where session_id=? and session_type=?"}},
      {"ClearUnread",
       [](CvDbSingleton& s) { s.clear_unread("room", Corvan::CV_GROUP); },
       {kBegin, kNewestReceivedTime, kReadTime, kMarkRead,
        "update t_session set unread_count=0,mention_count=0,read_time=? where session_id=? and session_type=?",
        kCommit}},
      {"SetReceiptTime",
       [](CvDbSingleton& s) { s.set_receipttime("room", 2, 5); },
       {"update t_session set receipt_time=? where session_id=? and session_type=?"}},
      {"ReceiptTimes",
       [](CvDbSingleton& s) {
         int64_t time = 0;
         s.get_receipt_time("room", 2, time);
         s.get_receipttime("room", 2, time);
       },
       {kReceiptTime, kReceiptTime}},
      {"TotalUnread",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         s.get_total_unread_count(unread);
       },
       {"select sum(unread_count) from t_session"}},
      {"UnreadOfSession",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         s.get_unread_count("room", Corvan::CV_GROUP, unread);
       },
       {"select unread_count from t_session where session_id=? and session_type=?"}},
      {"MessageCount",
       [](CvDbSingleton& s) {
         int32_t count = 0;
         s.get_message_count("room", Corvan::CV_GROUP, count);
       },
       {"select count(id) from t_message where session_id=? and session_type=?"}},
      {"UnreadOfAllKinds", by_kind({}, true), {"select sum(unread_count) from t_session"}},
      {"UnreadOfAllUnmuted",
       by_kind({}, false),
       {"select sum(unread_count) from t_session where silence=0"}},
      {"UnreadOfKinds",
       by_kind({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, true),
       {"select sum(unread_count) from t_session where session_type in(1,2)"}},
      {"UnreadOfOneKind",
       by_kind({Corvan::CV_GROUP}, true),
       {"select sum(unread_count) from t_session where session_type in(2)"}},
      {"UnreadOfOneKindUnmuted",
       by_kind({Corvan::CV_GROUP}, false),
       {"select sum(unread_count) from t_session where silence=0 and session_type in(2)"}},
      {"UnreadOfKindsUnmuted",
       by_kind({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, false),
       {"select sum(unread_count) from t_session where silence=0 and session_type in(1,2)"}},
      {"UnreadAndMentions",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         int32_t mention = 0;
         s.get_unread_mention_count({}, unread, mention);
         s.get_unread_mention_count({Corvan::CV_GROUP}, unread, mention);
       },
       {"select sum(unread_count),sum(mention_count) from t_session",
        "select sum(unread_count),sum(mention_count) from t_session where session_type in(2)"}},
  };
}

std::vector<LedgerEntry> ledger_of_frame() {
  return {
      {"ClearSendstatus", [](CvDbSingleton& s) { s.clear_sendstatus(false); }, {kMarkFailed}},
      {"DatabaseVersion",
       [](CvDbSingleton& s) { s.get_database_version(); },
       {kVersionTable, kVersion}},
      {"CheckIntegrity",
       [](CvDbSingleton& s) {
         std::string result;
         s.check_integrity(result);
       },
       {"pragma integrity_check;"}},
      {"IsDbUnlocked",
       [](CvDbSingleton& s) { s.is_db_unlocked("secret"); },
       {"select type from sqlite_master;"}},
      {"CopyDataWithoutOlderStore",
       [](CvDbSingleton& s) { s.createdb_copydata(); },
       {kBegin, "select type,tbl_name,sql from odb.sqlite_master", kCommit}},
      {"Transactions",
       [](CvDbSingleton& s) {
         s.start_transaction();
         s.commit_transaction();
         s.commit_transaction();
       },
       {kBegin, kCommit, kCommit, "rollback transaction"}},
      {"SyncTimes",
       [](CvDbSingleton& s) {
         s.set_sync_time(5, true);
         s.set_sync_time(5, true);
         int64_t time = 0;
         s.get_sync_time(&time, nullptr);
       },
       {kSyncTimes, kWriteSyncTimes, kSyncTimes, kSyncTimes}},
      {"StatementLayer",
       [](CvDbSingleton& s) {
         s.execute_none_query("no such");
         s.get_pragma("pragma user_version");
       },
       {"no such", "pragma user_version"}},
  };
}

}  // namespace corvan_test
