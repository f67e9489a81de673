#include "tests/model/model.h"

#include <iterator>

#include "tests/model/sql_values.h"
#include "tests/support/numbers.h"

namespace corvan_test {

using Corvan::Session;
using Corvan::SessionType;

namespace {

constexpr int32_t kNotOpen = -1;

}  // namespace

// ---- Message state ------------------------------------------------------------------------------

void Model::set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                          const std::string& session_id, SessionType session_type,
                          int32_t fail_reason) {
  start_transaction();
  if (set_sendtime(msg_id, sent_time, msg_uid, fail_reason) == kDone && sent_time > 0) {
    set_sessiontime(sent_time, msg_id, session_id, session_type);
  }
  commit_transaction();
}

bool Model::update_sent_status(int64_t msg_id, int32_t sent_status) {
  return common_message_int(msg_id, sent_status, "sent_status");
}

bool Model::set_read_status(int64_t msg_id, int32_t read_status) {
  start_transaction();
  std::string session_id;
  int32_t session_type = 0;
  bool is_unread = false;
  bool is_mention = false;
  int64_t sent_time = 0;
  const bool found =
      get_message_by_id(msg_id, session_id, session_type, is_unread, is_mention, sent_time);
  if (found) {
    message(msg_id)->read_status = read_status;
    message(msg_id)->is_mention = 0;
    int32_t unread = 0;
    if (read_status >= 1 && is_unread) unread = 1;
    if (read_status == 0 && !is_unread) unread = -1;
    if (unread != 0) set_unread_by_value(session_id, session_type, unread, is_mention ? 1 : 0);
  }
  commit_transaction();
  return found;
}

bool Model::update_message_receipt_status(const std::string& session_id, SessionType session_type,
                                          int64_t sent_time) {
  if (!open_) return false;
  int64_t receipt_time = 0;
  get_receipt_time(session_id, session_type, receipt_time);
  const bool later = receipt_time < sent_time;
  for (MessageRow* row : messages(session_id, session_type)) {
    if (later && row->sent_time <= receipt_time) continue;
    if (row->sent_time <= sent_time && row->direction == 0 && row->sent_status == 0) {
      row->sent_status = 3;
    }
  }
  if (later) set_receipttime(session_id, session_type, sent_time);
  return true;
}

bool Model::set_message_content(int64_t msg_id, const std::string& content,
                                const std::string& object_name) {
  if (!open_) return false;
  MessageRow* row = message(msg_id);
  if (row == nullptr) return true;
  row->content = cut(content);
  if (!object_name.empty()) {
    row->object_name = cut(object_name);
    row->is_mention = 0;
  }
  return true;
}

void Model::get_client_uid(const std::string& session_id, SessionType session_type,
                           int64_t& client_uid) {
  if (!open_) return;
  const MessageRow* row = newest(session_id, session_type, 0);
  if (row != nullptr) client_uid = row->client_uid;
}

void Model::get_client_uid(int64_t msg_id, int64_t& client_uid) {
  if (open_ && message(msg_id) != nullptr) client_uid = message(msg_id)->client_uid;
}

int32_t Model::set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                            int32_t fail_reason) {
  if (!open_) return kNotOpen;
  MessageRow* row = message(msg_id);
  if (row == nullptr) return kDone;
  row->sent_status = fail_reason != 0 ? 2 : 0;
  if (!msg_uid.empty()) row->server_uid = cut(msg_uid);
  if (sent_time > 0) row->sent_time = sent_time;
  return kDone;
}

bool Model::common_message_int(int64_t msg_id, int32_t value, const std::string& column) {
  const std::map<std::string, int64_t MessageRow::*> columns = {
      {"direction", &MessageRow::direction},
      {"is_mention", &MessageRow::is_mention},
      {"read_status", &MessageRow::read_status},
      {"sent_status", &MessageRow::sent_status}};
  const auto found = columns.find(column);
  if (!open_ || found == columns.end()) return false;
  if (message(msg_id) != nullptr) message(msg_id)->*found->second = value;
  return true;
}

bool Model::common_message_text(int64_t msg_id, const std::string& value,
                                const std::string& column) {
  const std::map<std::string, std::string MessageRow::*> columns = {
      {"object_name", &MessageRow::object_name},
      {"sender", &MessageRow::sender},
      {"server_uid", &MessageRow::server_uid}};
  const auto found = columns.find(column);
  if (!open_ || found == columns.end()) return false;
  if (message(msg_id) != nullptr) message(msg_id)->*found->second = cut(value);
  return true;
}

// ---- Deleting and clearing messages -------------------------------------------------------------

bool Model::delete_message(const std::vector<int64_t>& msg_id_v) {
  if (!open_) return false;
  std::string list;
  for (const int64_t id : msg_id_v) {
    if (id >= 1) append(list, std::to_string(id));
  }
  start_transaction();
  std::vector<Session> unread;
  std::vector<Session> pointing;
  load_distinct_session_with_unread(unread, list);
  load_session_with_latestid(pointing, list);
  for (const int64_t id : msg_id_v) {
    if (id >= 1) tables_.messages.erase(id);
  }
  for (const Session& each : unread) {
    if (each.unread_count_ <= 0) continue;
    set_unread_by_value(each.session_id_, each.session_type_, each.unread_count_,
                        each.mention_count_);
  }
  for (const Session& each : pointing) {
    int64_t id = -1;
    int64_t time = 0;
    get_message_latestid(each.session_id_, each.session_type_, id, time);
    set_message_latestid(each.session_id_, each.session_type_, id, time);
  }
  commit_transaction();
  return true;
}

void Model::delete_message(const std::string& session_id, SessionType session_type,
                           const std::vector<std::string>& msg) {
  std::string list;
  for (const std::string& uid : msg) append(list, "'" + uid + "'");
  const auto uids = quoted_list(list);
  if (!open_ || !uids) return;
  for (auto row = tables_.messages.begin(); row != tables_.messages.end();) {
    row = uids->count(row->second.server_uid) > 0 ? tables_.messages.erase(row) : std::next(row);
  }
  int64_t id = -1;
  int64_t time = 0;
  get_message_latestid(session_id, session_type, id, time);
  set_message_latestid(session_id, session_type, id, time);
}

bool Model::clear_message(const std::string& session_id, SessionType session_type, bool clean) {
  const bool deleted = delete_message(session_id, int32_t{session_type});
  set_message_latestid(session_id, session_type, -1, 0);
  return clean ? compact() : deleted;
}

bool Model::clear_message_by_timestamp(int64_t sent_time, bool) {
  if (!open_) return false;
  for (auto row = tables_.messages.begin(); row != tables_.messages.end();) {
    row = row->second.sent_time < sent_time ? tables_.messages.erase(row) : std::next(row);
  }
  return true;
}

bool Model::delete_message(const std::string& session_id, int32_t session_type) {
  if (!open_) return false;
  for (const MessageRow* row : messages(session_id, session_type)) {
    tables_.messages.erase(int64_t{row->id});
  }
  return true;
}

}  // namespace corvan_test
