#include "tests/damage/sweep.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/store_test.h"

namespace corvan_test {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

constexpr int kConversations = 15;
constexpr int kPages = 50;  // damage can make a list endless
const std::vector<SessionType> kKinds{Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM,
                                      Corvan::CV_RECEPTION, Corvan::CV_SYSTEM};

std::string conversation(int number) {
  return "room" + std::to_string(number);
}
SessionType kind_of(int number) {
  return kKinds[static_cast<std::size_t>(number) % kKinds.size()];
}

// ---- Results as text ----------------------------------------------------------------------------

std::string text(const std::string& value) {
  return value;
}
template <typename Number>
std::string text(Number value) {
  return std::to_string(value);
}
template <typename... Values>
std::string line(const Values&... values) {
  std::string all;
  ((all += text(values) + "|"), ...);
  return all + "\n";
}

std::string text(const MessageResponse& m) {
  return line(m.msg_id_, m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_,
              m.server_uid_, m.read_status_, m.sent_status_, m.is_receive_, m.sent_time_,
              m.client_uid_);
}
std::string text(const Session& s) {
  return line(s.session_id_, s.session_type_, s.title_, s.draft_, s.content_, s.object_name_,
              s.sender_, s.server_uid_, s.is_top_, s.unread_count_, s.silence_, s.mention_count_,
              s.session_time_, s.latest_id_);
}
std::string text(const SessionInfo& s) {
  return line(s.session_id_, s.session_type_, s.title_, s.draft_, s.is_top_, s.silence_,
              s.unread_count_, s.mention_count_, s.session_time, text(s.message_));
}
template <typename Record>
std::string lines(const std::vector<Record>& records) {
  std::string all;
  for (const Record& record : records) all += text(record);
  return all;
}

// The result of `read` for each conversation.
template <typename Read>
std::string of_each(const Read& read) {
  std::string all;
  for (int number = 0; number < kConversations; ++number) {
    all += read(conversation(number), kind_of(number));
  }
  return all;
}

// ---- Reads --------------------------------------------------------------------------------------

std::string read_version(const Subject& s) {
  return line(s.store.get_database_version(), s.store.is_table_exist("t_message"));
}

std::string read_unlocked(const Subject& s) {
  return line(s.store.is_db_unlocked(""));
}

std::string read_sync_times(const Subject& s) {
  int64_t received = 0;
  int64_t sent = 0;
  const bool done = s.store.get_sync_time(&received, &sent);
  return line(done, received, sent);
}

std::string read_list(const Subject& s) {
  std::vector<SessionInfo> list;
  std::vector<SessionInfo> page;
  int64_t time = 0;
  for (int i = 0; i < kPages && s.store.get_session_list_by_page(kKinds, time, 4, page); ++i) {
    time = page.back().session_time;
    list.insert(list.end(), page.begin(), page.end());
    page.clear();
  }
  return lines(list);
}

std::string read_sessions(const Subject& s) {
  return of_each([&s](const std::string& id, SessionType kind) {
    SessionInfo info;
    info.session_id_ = id;
    info.session_type_ = kind;
    const bool found = s.store.get_session(info);
    int32_t silence = 0;
    s.store.get_silence(id, kind, silence);
    std::string draft;
    s.store.get_message_draft(id, kind, draft);
    return line(found, s.store.is_session_exist(id, kind), silence) + text(info);
  });
}

std::string read_blocks(const Subject& s) {
  std::vector<Session> rows;
  std::string kinds = "1,2,3";
  s.store.load_session(rows, kinds, 0, 10, false);
  s.store.load_message(rows, "1,5,9,40");
  std::vector<Session> counted;
  s.store.load_distinct_session_with_unread(counted, "1,2,3,5,7,11");
  std::vector<Session> latest;
  s.store.load_session_with_latestid(latest, "300,301,302,303,304,305,306,307,308,309,310");
  return lines(rows) + lines(counted) + lines(latest) +
         of_each([&s](const std::string& id, SessionType kind) {
           int64_t msg_id = 0;
           int64_t time = 0;
           s.store.get_message_latestid(id, kind, msg_id, time);
           int64_t session_time = 0;
           int64_t latest_id = 0;
           int32_t unread = 0;
           int32_t mention = 0;
           s.store.get_sessiontime(id, kind, session_time, latest_id, unread, mention);
           return line(msg_id, time, session_time, latest_id, unread, mention);
         });
}

std::string read_history(const Subject& s) {
  return of_each([&s](const std::string& id, SessionType kind) {
    std::vector<MessageResponse> all;
    std::vector<MessageResponse> page;
    int64_t anchor = 0;
    for (int i = 0; i < kPages; ++i) {
      if (!s.store.get_history_message_by_time(id, kind, "", anchor, 8, page, true)) break;
      anchor = page.back().msg_id_;
      all.insert(all.end(), page.begin(), page.end());
      page.clear();
    }
    return lines(all);
  });
}

std::string read_history_of_kinds(const Subject& s) {
  return of_each([&s](const std::string& id, SessionType kind) {
    std::vector<MessageResponse> page;
    s.store.get_history_message_by_object_name(id, kind, {"CV:ImgMsg", "CV:VcMsg"}, 20, 10, page,
                                               false);
    s.store.get_matched_message(id, kind, 100, 3, 3, page);
    s.store.get_mention_message(id, kind, page);
    return lines(page);
  });
}

std::string read_messages(const Subject& s) {
  std::string all;
  for (int64_t id = 1; id <= 320; id += 5) {
    MessageResponse message;
    message.msg_id_ = id;
    s.store.get_message_by_id(message);
    std::string session_id;
    int32_t kind = 0;
    bool unread = false;
    bool mention = false;
    int64_t time = 0;
    s.store.get_message_by_id(id, session_id, kind, unread, mention, time);
    int64_t client_uid = 0;
    s.store.get_client_uid(id, client_uid);
    all += text(message) +
           line(session_id, kind, unread, mention, time, client_uid, s.store.get_send_time(id));
  }
  return all;
}

std::string read_messages_by_uid(const Subject& s) {
  std::string all;
  for (int number = 1; number < 320; number += 7) {
    MessageResponse message;
    message.server_uid_ = "roomuid" + std::to_string(number);
    s.store.get_message_by_uid(message);
    all += text(message);
  }
  std::vector<std::string> stored;
  s.store.is_message_exist("'roomuid1','roomuid7','roomuid311','nowhere'", stored);
  return all + lines(stored);
}

std::string read_duplicates(const Subject& s) {
  std::vector<UpdateValue> values(3);
  for (int number = 0; number < 3; ++number) {
    UpdateValue& value = values[static_cast<std::size_t>(number)];
    value.session_id_ = conversation(number);
    value.session_type_ = kind_of(number);
    value.sender_ = number == 0 ? "me" : "user" + std::to_string(number);
    value.client_uid_ = 500 + number;
  }
  std::string all = line(s.store.is_message_exist(values));
  for (const UpdateValue& value : values) all += line(value.msg_id_, value.server_uid_old_);
  return all + line(s.store.is_message_exist("room1", Corvan::CV_GROUP, int64_t{1200}));
}

std::string read_times(const Subject& s) {
  return of_each([&s](const std::string& id, SessionType kind) {
    std::string all;
    for (int32_t type = 0; type <= 2; ++type) {
      int64_t time = 0;
      s.store.get_max_time(time, kind, id, type);
      all += line(time, s.store.get_max_message_id(kind, id, type));
    }
    int64_t read_time = 0;
    s.store.get_readtime(id, kind, read_time);
    int64_t receipt_time = 0;
    s.store.get_receipt_time(id, kind, receipt_time);
    int64_t client_uid = 0;
    s.store.get_client_uid(id, kind, client_uid);
    return all + line(read_time, receipt_time, client_uid);
  });
}

std::string read_counters(const Subject& s) {
  int32_t total = 0;
  s.store.get_total_unread_count(total);
  int32_t by_kind = 0;
  s.store.get_cate_unread_count({Corvan::CV_GROUP, Corvan::CV_SYSTEM}, by_kind, false);
  int32_t unread = 0;
  int32_t mention = 0;
  s.store.get_unread_mention_count({}, unread, mention);
  return line(total, by_kind, unread, mention) +
         of_each([&s](const std::string& id, SessionType kind) {
           int32_t unread_here = 0;
           s.store.get_unread_count(id, kind, unread_here);
           int32_t count = 0;
           s.store.get_message_count(id, kind, count);
           return line(unread_here, count);
         });
}

// ---- Writes -------------------------------------------------------------------------------------

std::string save_some(const Subject& s) {
  for (int number = 0; number < 10; ++number) {
    save(s.store, NewMessage()
                      .in(conversation(number), kind_of(number))
                      .at(5000 + number)
                      .client(9000 + number)
                      .named("swept" + std::to_string(number))
                      .text(std::string(static_cast<std::size_t>(number) * 1500, 's')));
  }
  save(s.store, NewMessage().in("new", Corvan::CV_PRIVATE).own(9100).status(1));
  save(s.store, NewMessage().in("room4", Corvan::CV_SYSTEM).at(10).fetched());
  save(s.store, NewMessage().in("room4", Corvan::CV_SYSTEM).at(11).inserted_only());
  return "";
}

std::string save_batch(const Subject& s) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (int number = 0; number < 10; ++number) {
    batch.push_back(std::make_unique<MessageResponse>());
    MessageResponse& message = *batch.back();
    message.msg_id_ = -1;
    message.is_store_ = true;
    message.session_id_ = conversation(number);
    message.session_type_ = kind_of(number);
    message.content_ = std::string(3000, 'b');
    message.sent_time_ = 6000 + number;
    message.server_uid_ = "batch" + std::to_string(number);
  }
  s.store.save_message(batch);
  return "";
}

std::string save_in_transaction(const Subject& s) {
  s.store.start_transaction();
  for (int number = 0; number < 5; ++number) {
    save(s.store, NewMessage().in("room2", Corvan::CV_CHATROOM).at(7000 + number));
  }
  s.store.commit_transaction();
  return "";
}

std::string complete_sends(const Subject& s) {
  s.store.set_send_time_for_dup_msg(5, 1400, "completed5");
  std::vector<UpdateValue> values(1);
  values[0].msg_id_ = 9;
  values[0].server_uid_new_ = "completed9";
  values[0].sent_time_ = 1401;
  s.store.set_send_time_for_dup_msg(values);
  s.store.set_send_time(13, 8000, "completed13", "room12", Corvan::CV_CHATROOM, 0);
  s.store.set_sessiontime(8001, 14, "room13", Corvan::CV_RECEPTION);
  return "";
}

std::string change_states(const Subject& s) {
  for (int64_t id = 1; id <= 200; id += 17) {
    s.store.update_sent_status(id, 2);
    s.store.set_read_status(id, 1);
    s.store.set_message_content(id + 1, std::string(5000, 'c'), id % 2 == 0 ? "" : "CV:RcMsg");
  }
  s.store.update_message_receipt_status("room0", Corvan::CV_PRIVATE, 1100);
  s.store.update_message_status("room1", Corvan::CV_GROUP);
  return "";
}

std::string set_sync_times(const Subject& s) {
  s.store.set_sync_time(20000, true);
  s.store.set_sync_time(20001, false);
  return "";
}

std::string change_sessions(const Subject& s) {
  s.store.set_is_top("room3", Corvan::CV_RECEPTION, true, false);
  s.store.set_is_top("pinned", Corvan::CV_GROUP, true, true);
  s.store.set_message_draft("room3", Corvan::CV_RECEPTION, std::string(6000, 'd'));
  s.store.set_silence("room3", Corvan::CV_RECEPTION, 2);
  s.store.add_session("added", Corvan::CV_GROUP, 0, -1, "title", 1, 1);
  s.store.set_message_latestid("added", Corvan::CV_GROUP, 5, 600);
  s.store.set_session_time("added", Corvan::CV_GROUP, 700, "CV:TxtMsg", 6, 1, 0, 0);
  return "";
}

std::string change_counters(const Subject& s) {
  s.store.clear_unread("room6", Corvan::CV_GROUP);
  s.store.sync_unread("room7", Corvan::CV_CHATROOM, 1100);
  s.store.set_unread_by_value("room8", Corvan::CV_RECEPTION, 1, 1);
  s.store.set_unread_readtime("room9", Corvan::CV_SYSTEM, 1200);
  s.store.set_receipttime("room9", Corvan::CV_SYSTEM, 1200);
  return "";
}

std::string copy_older_store(const Subject& s) {
  s.store.execute_none_query("attach '" + s.old_file + "' as odb");
  s.store.createdb_copydata();
  s.store.execute_none_query("detach odb");
  return "";
}

std::string delete_messages(const Subject& s) {
  s.store.delete_message(std::vector<int64_t>{1, 2, 30, 31, 32, 100, 250});
  s.store.delete_message("room1", Corvan::CV_GROUP, {"roomuid21", "roomuid36", "swept1"});
  s.store.delete_message("room14", Corvan::CV_SYSTEM);
  s.store.clear_message("room10", Corvan::CV_PRIVATE, false);
  s.store.clear_message_by_timestamp(1030, false);
  return "";
}

std::string delete_sessions(const Subject& s) {
  s.store.remove_session("room5", Corvan::CV_PRIVATE);
  s.store.delete_session("room9", Corvan::CV_SYSTEM);
  s.store.clear_session({Corvan::CV_RECEPTION});
  return "";
}

std::string compact(const Subject& s) {
  s.store.clear_message("room11", Corvan::CV_GROUP, true);
  return "";
}

}  // namespace

const std::vector<SweepOperation>& sweep_reads() {
  static const std::vector<SweepOperation> reads{
      {"version", read_version},
      {"is_db_unlocked", read_unlocked},
      {"sync times", read_sync_times},
      {"list of conversations", read_list},
      {"conversations", read_sessions},
      {"loaders", read_blocks},
      {"history", read_history},
      {"history of kinds", read_history_of_kinds},
      {"messages by id", read_messages},
      {"messages by uid", read_messages_by_uid},
      {"duplicate tests", read_duplicates},
      {"times", read_times},
      {"counters", read_counters},
  };
  return reads;
}

const std::vector<SweepOperation>& sweep_writes() {
  static const std::vector<SweepOperation> writes{
      {"saves", save_some},
      {"batch save", save_batch},
      {"saves in a transaction", save_in_transaction},
      {"completing sends", complete_sends},
      {"states", change_states},
      {"setting sync times", set_sync_times},
      {"settings", change_sessions},
      {"changing counters", change_counters},
      {"copy of an older store", copy_older_store},
      {"deleting messages", delete_messages},
      {"deleting conversations", delete_sessions},
      {"compaction", compact},
  };
  return writes;
}

}  // namespace corvan_test
