#include "bench/growth/operations.h"

#include <memory>
#include <utility>

#include "bench/support/messages.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

CvDbSingleton& store() {
  return *CvDbSingleton::get_instance();
}

void verify(bool holds, const std::string& what) {
  Report::verify(holds, what);
}

constexpr int64_t kLatest = int64_t{1} << 60;  // later than every message

// A kind that no conversation of the benchmark has.
constexpr SessionType kNoSuchKind = Corvan::CV_RECEPTION;

void expect_page(const Target& t, int64_t before, bool desc, std::vector<std::string> kinds,
                 std::size_t rows) {
  std::vector<MessageResponse> page;
  store().get_history_message_by_object_name(t.session_id, t.session_type, kinds, before, 20, page,
                                             desc);
  verify(page.size() == rows, "a page of " + t.name);
}

void expect_list(const std::vector<SessionType>& kinds, int64_t before, std::size_t rows) {
  std::vector<SessionInfo> page;
  store().get_session_list_by_page(kinds, before, 20, page);
  verify(page.size() == rows, "a page of the list");
}

const std::vector<SessionType> kTwoKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};

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

std::vector<Operation> writes(FilledStore& filled, const Target& t) {
  FilledStore* const f = &filled;
  const std::string& id = t.session_id;
  const SessionType type = t.session_type;
  static uint64_t seed = 100;  // new server uids at each call
  const auto stream = std::make_shared<MessageStream>(++seed, 100, 4);
  const auto next = [=] {
    MessageResponse m = stream->next();
    m.session_id_ = id;
    m.session_type_ = type;
    m.sent_time_ += 1000000000;
    return m;
  };
  const auto save = [=] {
    const int64_t msg_id = save_live(next());
    verify(msg_id > 0, "a save");
    return msg_id;
  };
  return {
      {"set_sync_time",
       [=] { verify(store().set_sync_time(stream->next().sent_time_, true), "a later time"); }},
      {"save_message", [=] { save(); }},
      {"save_message of a batch of 20",
       [=] {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 20; ++i) batch.push_back(std::make_unique<MessageResponse>(next()));
         verify(store().save_message(batch) && batch.back()->msg_id_ > 0, "a batch");
       }},
      {"set_send_time_for_dup_msg",
       [=] {
         const MessageResponse m = next();
         store().set_send_time_for_dup_msg(f->some_id(), m.sent_time_, m.server_uid_);
       }},
      {"set_send_time",
       [=] {
         const MessageResponse m = next();
         store().set_send_time(f->some_id(), m.sent_time_, m.server_uid_, id, type, 0);
       }},
      {"update_sent_status",
       [=] { verify(store().update_sent_status(f->some_id(), 2), "an update"); }},
      {"set_read_status", [=] { verify(store().set_read_status(f->some_id(), 1), "an update"); }},
      {"update_message_receipt_status, again",
       [=] { verify(store().update_message_receipt_status(id, type, kLatest), "an update"); }},
      {"set_message_content",
       [=] {
         verify(store().set_message_content(f->some_id(), "changed", "CV:TxtMsg"), "an update");
       }},
      {"save and delete_message by id",
       [=] { verify(store().delete_message(std::vector<int64_t>{save()}), "a deletion"); }},
      {"save and delete_message by server uid",
       [=] {
         const MessageResponse m = next();
         verify(save_live(m) > 0, "a save");
         store().delete_message(id, type, {m.server_uid_});
       }},
      {"clear_message_by_timestamp, none older",
       [] { verify(store().clear_message_by_timestamp(1, false), "a deletion"); }},
      {"clear_message of an empty conversation",
       [] { verify(store().clear_message("none", Corvan::CV_GROUP, false), "a deletion"); }},
      {"set_unread_readtime and update_message_status, none unread",
       [=] {
         store().set_unread_readtime(id, type, kLatest);
         verify(store().update_message_status(id, type), "an update");
       }},
      {"set_is_top", [=] { verify(store().set_is_top(id, type, true, false), "an update"); }},
      {"set_message_draft",
       [=] { verify(store().set_message_draft(id, type, "to do"), "an update"); }},
      {"set_silence", [=] { verify(store().set_silence(id, type, 0), "an update"); }},
      {"add_session and remove_session",
       [] {
         verify(store().add_session("new", Corvan::CV_GROUP, 5, -1, "", 0, 0), "a row");
         verify(store().remove_session("new", Corvan::CV_GROUP), "a deletion");
       }},
      {"set_session_time",
       [=] { store().set_session_time(id, type, 5, "CV:TxtMsg", t.middle_id, 0, 0, 0); }},
      {"set_sessiontime",
       [=] { store().set_sessiontime(stream->next().sent_time_ * 2, t.middle_id, id, type); }},
      {"set_message_latestid",
       [=] {
         verify(store().set_message_latestid(id, type, t.middle_id, stream->next().sent_time_),
                "an update");
       }},
      {"sync_unread", [=] { verify(store().sync_unread(id, type, 5), "an update"); }},
      {"clear_unread, none unread",
       [=] {
         verify(store().clear_unread(id, type), "an update");
         store().set_unread_readtime(id, type, kLatest);
       }},
      {"set_unread_by_value",
       [=] { verify(store().set_unread_by_value(id, type, 1, 1), "an update"); }},
      {"set_receipttime", [=] { store().set_receipttime(id, type, 5); }},
  };
}

std::vector<Sum> sums() {
  const auto sum = [](std::vector<SessionType> kinds, bool with_dnd) {
    return [=] {
      int32_t unread = 0;
      store().get_cate_unread_count(kinds, unread, with_dnd);
      verify(unread > 0, "unread messages");
    };
  };
  // Testing a row takes longer, and so does a second counter; three kinds and more are looked up.
  constexpr double kPlain = 50;
  constexpr double kWithMore = 100;
  constexpr double kWithManyKinds = 150;
  return {
      {{"get_total_unread_count",
        [] {
          int32_t unread = 0;
          store().get_total_unread_count(unread);
          verify(unread > 0, "unread messages");
        }},
       kPlain},
      {{"get_cate_unread_count, all", sum({}, true)}, kPlain},
      {{"get_cate_unread_count, not muted", sum({}, false)}, kWithMore},
      {{"get_cate_unread_count, two kinds", sum(kTwoKinds, true)}, kWithMore},
      {{"get_cate_unread_count, two kinds, not muted", sum(kTwoKinds, false)}, kWithMore},
      {{"get_cate_unread_count, five kinds, not muted",
        sum({Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
             Corvan::CV_SYSTEM},
            false)},
       kWithManyKinds},
      {{"get_cate_unread_count, one kind, not muted", sum({Corvan::CV_GROUP}, false)}, kWithMore},
      {{"get_unread_mention_count, all",
        [] {
          int32_t unread = 0;
          int32_t mention = 0;
          store().get_unread_mention_count({}, unread, mention);
          verify(unread > 0 && mention > 0, "unread messages");
        }},
       kWithMore},
  };
}

std::vector<Exception> exceptions(FilledStore& filled) {
  const Target& largest = filled.largest();
  const Target own = filled.target("own", "own", Corvan::CV_GROUP);
  const Target covered = filled.target("covered", "covered", Corvan::CV_GROUP);
  const Target older = filled.target("older, read", "older-read", Corvan::CV_GROUP);
  const int64_t all = filled.conversations();
  const auto groups = static_cast<int64_t>(
      filled.store().number("select count(*) from t_session where session_type=2"));
  const auto none = [](int32_t type, const Target& t) {
    return [=] {
      verify(store().get_max_message_id(t.session_type, t.session_id, type) == -1, "none");
    };
  };
  const auto no_time = [](int32_t type, const Target& t) {
    return [=] {
      int64_t time = 0;
      store().get_max_time(time, t.session_type, t.session_id, type);
      verify(time == 0, "none");
    };
  };
  return {
      {"get_message_count", "counts", "message", largest.messages, 100,
       [=] {
         int32_t count = 0;
         store().get_message_count(largest.session_id, largest.session_type, count);
         verify(count == largest.messages, "all messages");
       }},
      {"history, page of a kind of message that is not there",
       "an index by kind of message would be written with every save", "message", largest.messages,
       200, [=] { expect_page(largest, 0, true, {"CV:FileMsg"}, 0); }},
      {"is_message_exist after the beginning, own messages alone",
       "an index of received messages would be written with every save", "message", own.messages,
       150,
       [=] {
         verify(!store().is_message_exist(own.session_id, own.session_type, int64_t{0}), "none");
       }},
      {"get_max_time, received, own messages alone", "the same", "message", own.messages, 100,
       no_time(1, own)},
      {"get_max_message_id, received, own messages alone", "the same", "message", own.messages,
       3000, none(1, own)},
      {"clear_unread, own messages alone", "the same; walks twice", "message", own.messages, 250,
       [=] { verify(store().clear_unread(own.session_id, own.session_type), "an update"); }},
      {"get_max_time, sent, covered messages alone",
       "an index of sent messages would be written with every save", "message", covered.messages,
       100, no_time(0, covered)},
      {"get_max_message_id, sent, covered messages alone", "the same", "message", covered.messages,
       3000, none(0, covered)},
      {"get_mention_message, older rows that are no mentions",
       "a narrower condition would cost every save, for rows that the store never writes",
       "message", older.messages, 150,
       [=] {
         std::vector<MessageResponse> list;
         store().get_mention_message(older.session_id, older.session_type, list);
         verify(list.empty(), "no mentions");
       }},
      {"get_unred_mention, older rows that are read", "the same", "message", older.messages, 120,
       [=] {
         int32_t unread = -1;
         int32_t mention = -1;
         store().get_unred_mention(older.session_id, older.session_type, 0, unread, mention);
         verify(unread == 0 && mention == 0, "none");
       }},
      {"list, page of kinds that are not there",
       "an index by kind would lead lists of several kinds astray", "conversation", all, 110,
       [] {
         expect_list({kNoSuchKind, Corvan::CV_CHATROOM}, 0, 0);
       }},
      {"get_cate_unread_count, one kind", "the same; looks up each conversation of the kind",
       "conversation of the kind", groups, 1800,
       [] {
         int32_t unread = 0;
         store().get_cate_unread_count({Corvan::CV_GROUP}, unread, true);
         verify(unread > 0, "unread messages");
       }},
      {"clear_session, kinds that are not there", "the same", "conversation", all, 110,
       [] {
         verify(store().clear_session({kNoSuchKind, Corvan::CV_CHATROOM}), "a deletion");
       }},
  };
}

}  // namespace corvan_bench
