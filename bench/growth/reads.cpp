// The measured reads.

#include "bench/growth/calls.h"
#include "bench/growth/operations.h"

namespace corvan_bench {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

namespace {

std::string id_list(FilledStore& filled, int count) {
  std::string ids;
  for (int i = 0; i < count; ++i) {
    ids += (ids.empty() ? "" : ",") + std::to_string(filled.some_id());
  }
  return ids;
}

}  // namespace

std::vector<Operation> reads(const Target& t) {
  const std::string& id = t.session_id;
  const SessionType type = t.session_type;
  const bool large = t.messages > 40;
  const auto choice = [=](int32_t of) {
    return [=] { verify(store().get_max_message_id(type, id, of) > 0, "a newest id"); };
  };
  const auto newest = [=](int32_t of) {
    return [=] {
      int64_t time = 0;
      store().get_max_time(time, type, id, of);
      verify(time > 0, "a newest time");
    };
  };
  return {
      {"is_message_exist after the beginning",
       [=] { verify(store().is_message_exist(id, type, int64_t{0}), "a message"); }},
      {"is_message_exist after the newest",
       [=] { verify(!store().is_message_exist(id, type, t.newest_time), "no message"); }},
      {"is_message_exist by server uid",
       [=] { verify(store().is_message_exist(t.middle_server_uid), "the message"); }},
      {"is_message_exist by a list of server uids",
       [=] {
         std::vector<std::string> found;
         store().is_message_exist("'" + t.middle_server_uid + "','none'", found);
         verify(found.size() == 1, "the message");
       }},
      {"is_message_exist by client key",
       [=] {
         int64_t msg_id = 0;
         std::string uid;
         verify(!store().is_message_exist(77, "me", id, type, msg_id, uid), "no message");
       }},
      {"is_message_exist by client keys",
       [=] {
         std::vector<UpdateValue> values(1);
         values[0].session_id_ = id;
         values[0].session_type_ = type;
         values[0].client_uid_ = 77;
         verify(!store().is_message_exist(values), "no message");
       }},
      {"get_client_uid of a conversation",
       [=] {
         int64_t uid = 0;
         store().get_client_uid(id, type, uid);
         verify(uid > 0, "a client uid");
       }},
      {"get_client_uid of a message",
       [=] {
         int64_t uid = 0;
         store().get_client_uid(t.middle_id, uid);
         verify(uid > 0, "a client uid");
       }},
      {"get_message_by_id",
       [=] {
         MessageResponse m;
         m.msg_id_ = t.middle_id;
         verify(store().get_message_by_id(m) && m.sent_time_ == t.middle_time, "the message");
       }},
      {"get_message_by_uid",
       [=] {
         MessageResponse m;
         m.server_uid_ = t.middle_server_uid;
         verify(store().get_message_by_uid(m) && m.msg_id_ == t.middle_id, "the message");
       }},
      {"history, newest page", [=] { expect_page(t, 0, true, {}, large ? 20 : 10); }},
      {"history, page before the middle",
       [=] { expect_page(t, t.middle_id, true, {}, large ? 20 : 5); }},
      {"history, page after the middle",
       [=] { expect_page(t, t.middle_id, false, {}, large ? 20 : 4); }},
      {"history, page of one kind of message",
       [=] {
         std::vector<MessageResponse> page;
         store().get_history_message_by_time(id, type, "CV:TxtMsg", t.middle_id, large ? 20 : 1,
                                             page, true);
         verify(!page.empty(), "a page");
       }},
      {"history, page of two kinds of message",
       [=] {
         expect_page(t, t.middle_id, true, {"CV:ImgMsg", "CV:TxtMsg"}, large ? 20 : 5);
       }},
      {"get_mention_message",
       [=] {
         std::vector<MessageResponse> list;
         verify(!store().get_mention_message(id, type, list), "no mentions");
       }},
      {"get_matched_message",
       [=] {
         std::vector<MessageResponse> span;
         verify(store().get_matched_message(id, type, t.middle_id, 10, 10, span), "a span");
       }},
      {"get_max_time, sent", newest(0)},
      {"get_max_time, received", newest(1)},
      {"get_max_time, any", newest(2)},
      {"get_max_message_id, sent", choice(0)},
      {"get_max_message_id, received", choice(1)},
      {"get_max_message_id, any", choice(2)},
      {"get_message_by_id, state",
       [=] {
         std::string session;
         int32_t kind = 0;
         bool unread = false;
         bool mention = false;
         int64_t time = 0;
         verify(store().get_message_by_id(t.middle_id, session, kind, unread, mention, time),
                "the message");
       }},
      {"get_send_time",
       [=] { verify(store().get_send_time(t.middle_id) == t.middle_time, "its time"); }},
      {"get_readtime",
       [=] {
         int64_t time = -1;
         store().get_readtime(id, type, time);
         verify(time >= 0, "a read time");
       }},
      {"get_silence",
       [=] {
         int32_t status = -1;
         verify(store().get_silence(id, type, status) && status == 0, "its setting");
       }},
      {"is_session_exist", [=] { verify(store().is_session_exist(id, type), "its row"); }},
      {"get_sessiontime",
       [=] {
         int64_t time = 0;
         int64_t latest = 0;
         int32_t unread = 0;
         int32_t mention = 0;
         store().get_sessiontime(id, type, time, latest, unread, mention);
         verify(latest > 0, "its row");
       }},
      {"get_session",
       [=] {
         SessionInfo info;
         info.session_id_ = id;
         info.session_type_ = type;
         verify(store().get_session(info) && !info.message_.content_.empty(), "its entry");
       }},
      {"load_session of one conversation",
       [=] {
         Session row;
         verify(store().load_session(row, id, type), "its row");
       }},
      {"load_message of one conversation",
       [=] {
         Session row;
         row.latest_id_ = t.middle_id;
         verify(store().load_message(row), "the message");
       }},
      {"get_message_latestid",
       [=] {
         int64_t latest = 0;
         int64_t time = 0;
         store().get_message_latestid(id, type, latest, time);
         verify(time == t.newest_time, "the newest message");
       }},
      {"get_receipt_time",
       [=] {
         int64_t time = -1;
         store().get_receipt_time(id, type, time);
         verify(time >= 0, "a receipt time");
       }},
      {"get_unread_count",
       [=] {
         int32_t unread = -1;
         verify(store().get_unread_count(id, type, unread) && unread >= 0, "its counter");
       }},
      {"get_unred_mention",
       [=] {
         int32_t unread = -1;
         int32_t mention = -1;
         verify(store().get_unred_mention(id, type, 0, unread, mention) && unread == 0, "none");
       }},
  };
}

std::vector<Operation> store_reads(FilledStore& filled) {
  const std::string ids = id_list(filled, 20);
  const Target older = filled.target("older", "older", Corvan::CV_GROUP);
  const auto read_up_to = static_cast<int64_t>(filled.store().number(
      "select sent_time from t_message where session_id='older' order by sent_time desc limit 1 "
      "offset 20"));
  const auto past_the_pinned =
      static_cast<int64_t>(filled.store().number("select session_time from t_session where "
                                                 "is_top=0 order by session_time desc limit 1 "
                                                 "offset 100"));
  return {
      {"get_database_version", [] { verify(store().get_database_version() == "1", "1"); }},
      {"is_table_exist", [] { verify(store().is_table_exist("t_sync"), "the table"); }},
      {"is_db_unlocked", [] { verify(store().is_db_unlocked("") == 0, "unlocked"); }},
      {"get_sync_time",
       [] {
         int64_t time = 0;
         verify(store().get_sync_time(&time, nullptr), "no failure");
       }},
      {"list, first page of two kinds", [] { expect_list(kTwoKinds, 0, 20); }},
      {"list, first page of all kinds",
       [] {
         expect_list({Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM,
                      Corvan::CV_RECEPTION, Corvan::CV_SYSTEM},
                     0, 20);
       }},
      {"list, first page of one kind", [] { expect_list({Corvan::CV_GROUP}, 0, 20); }},
      {"list, first page and one past the pinned ones",
       [=] {
         expect_list(kTwoKinds, 0, 20);  // ends past the pinned ones
         expect_list(kTwoKinds, past_the_pinned, 20);
       }},
      {"load_session among the pinned ones",
       [] {
         std::vector<Session> rows;
         std::string kinds = "1,2";
         store().load_session(rows, kinds, kLatest, 20, true);
         verify(rows.size() == 20, "a page");
       }},
      {"load_message of a page",
       [=] {
         std::vector<Session> messages;
         store().load_message(messages, ids);
         verify(!messages.empty(), "messages");
       }},
      {"load_distinct_session_with_unread",
       [=] {
         std::vector<Session> rows;
         verify(store().load_distinct_session_with_unread(rows, ids) == !rows.empty(), "rows");
       }},
      {"load_session_with_latestid",
       [=] {
         std::vector<Session> rows;
         verify(store().load_session_with_latestid(rows, ids) == !rows.empty(), "rows");
       }},
      {"get_mention_message of older rows",
       [=] {
         std::vector<MessageResponse> list;
         store().get_mention_message(older.session_id, older.session_type, list);
         verify(list.size() == 10, "ten mentions");
       }},
      {"get_unred_mention of older rows",
       [=] {
         int32_t unread = 0;
         int32_t mention = 0;
         store().get_unred_mention(older.session_id, older.session_type, read_up_to, unread,
                                   mention);
         verify(unread == 20 && mention == 20, "twenty");
       }},
  };
}

}  // namespace corvan_bench
