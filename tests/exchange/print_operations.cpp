#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_records.h"
#include "db/cv_db_singleton.h"
#include "tests/exchange/print.h"
#include "tests/exchange/text.h"

namespace exchange {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

const std::vector<SessionType> kKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM,
                                         Corvan::CV_RECEPTION, Corvan::CV_SYSTEM};

std::string line(const MessageResponse& m) {
  return line_of(m.msg_id_, m.session_id_, int64_t{m.session_type_}, m.sender_, m.object_name_,
                 m.content_, m.server_uid_, int64_t{m.is_receive_}, int64_t{m.read_status_},
                 int64_t{m.sent_status_}, m.sent_time_);
}

std::string line(const SessionInfo& s) {
  return line_of(s.session_id_, int64_t{s.session_type_}, s.title_, s.draft_, int64_t{s.is_top_},
                 int64_t{s.silence_}, int64_t{s.unread_count_}, int64_t{s.mention_count_},
                 s.session_time) +
         "|" + line(s.message_);
}

void print_history(CvDbSingleton& store, const SessionInfo& s, std::ostream& out) {
  const auto kind = static_cast<SessionType>(s.session_type_);
  std::vector<MessageResponse> messages;
  store.get_history_message_by_time(s.session_id_, kind, "", 0, -1, messages, true);
  for (const auto& message : messages) {
    int64_t client_uid = 0;
    store.get_client_uid(message.msg_id_, client_uid);
    MessageResponse by_id;
    by_id.msg_id_ = message.msg_id_;
    const bool is_found = store.get_message_by_id(by_id);
    out << "history: " << line(message) << "|" << client_uid << "\n";
    out << "by id: " << is_found << "|" << line(by_id) << "\n";
  }
}

void print_counters(CvDbSingleton& store, const SessionInfo& s, std::ostream& out) {
  const auto kind = static_cast<SessionType>(s.session_type_);
  int32_t unread = -1;
  int32_t messages = -1;
  int32_t silence = -1;
  int64_t receipt = -1;
  int64_t read = -1;
  store.get_unread_count(s.session_id_, kind, unread);
  store.get_message_count(s.session_id_, kind, messages);
  store.get_silence(s.session_id_, kind, silence);
  store.get_receipt_time(s.session_id_, kind, receipt);
  store.get_readtime(s.session_id_, kind, read);
  out << "counters: "
      << line_of(s.session_id_, int64_t{unread}, int64_t{messages}, int64_t{silence}, receipt, read,
                 store.get_max_message_id(kind, s.session_id_, 2))
      << "\n";
}

void print_totals(CvDbSingleton& store, std::ostream& out) {
  int64_t received = -1;
  int64_t sent = -1;
  int32_t total = -1;
  int32_t audible = -1;
  int32_t unread = -1;
  int32_t mentions = -1;
  store.get_sync_time(&received, &sent);
  store.get_total_unread_count(total);
  store.get_cate_unread_count(kKinds, audible, false);
  store.get_unread_mention_count(kKinds, unread, mentions);
  out << "totals: "
      << line_of(received, sent, int64_t{total}, int64_t{audible}, int64_t{unread},
                 int64_t{mentions})
      << "\n";
}

}  // namespace

void print_operations(CvDbSingleton& store, std::ostream& out) {
  std::string integrity;
  store.check_integrity(integrity);
  out << "store: " << line_of(store.get_database_version(), integrity) << "\n";
  print_totals(store, out);
  std::vector<SessionInfo> list;
  store.get_session_list_by_page(kKinds, 0, -1, list);
  for (const auto& session : list) {
    out << "list: " << line(session) << "\n";
    print_counters(store, session, out);
    print_history(store, session, out);
  }
}

}  // namespace exchange
