#include "tests/model/model.h"

#include "tests/model/sql_values.h"
#include "tests/support/clock.h"

namespace corvan_test {

using Corvan::MessageResponse;
using Corvan::SessionType;
using Corvan::UpdateValue;

// ---- Saving messages ----------------------------------------------------------------------------

int64_t Model::save_message(const std::string& session_id, SessionType session_type,
                            const std::string& object_name, const std::string& sender,
                            const std::string& content, bool is_receive, int32_t sent_status,
                            int32_t, bool is_mention, int64_t sent_time, int64_t client_uid,
                            const std::string& server_uid, bool history, bool insert_only,
                            bool is_count) {
  const bool own_time = insert_only && sent_time > 0;
  if (sent_time < 1) sent_time = clock_now();
  if (is_message_exist(server_uid)) return -1;
  if (!insert_only && !history) {
    int64_t old_id = 0;
    std::string old_uid;
    if (is_message_exist(client_uid, is_receive ? sender : user_, session_id, session_type, old_id,
                         old_uid)) {
      if (!old_uid.empty()) return -1;
      set_send_time_for_dup_msg(old_id, sent_time, server_uid);
      return old_id;
    }
  }

  MessageRow row;
  row.session_id = cut(session_id);
  row.session_type = session_type;
  row.object_name = cut(object_name);
  row.content = cut(content);
  row.sender = cut(sender);
  row.direction = is_receive ? 1 : 0;
  row.sent_status = sent_status;
  row.read_status = !is_receive || session_type == Corvan::CV_CHATROOM ? 1 : 0;
  row.is_mention = is_mention ? 1 : 0;
  row.sent_time = sent_time;
  row.client_uid = client_uid;
  row.server_uid = cut(server_uid);
  if (!open_ || !insert(row)) return -1;
  const int64_t id = last_insert_;

  const int32_t unread = is_count ? 1 : 0;
  const int32_t mention = is_mention ? 1 : 0;
  if (is_session_exist(session_id, session_type)) {
    const int profile =
        (history ? kHistory : 0) + (insert_only ? kInsertOnly : 0) + (own_time ? kOwnTime : 0);
    set_session_time(session_id, session_type, sent_time, object_name, id, unread, mention,
                     static_cast<uint32_t>(profile));
  } else {
    add_session(session_id, session_type, sent_time, id, "", unread, mention);
  }
  return id;
}

bool Model::save_message(const std::vector<std::unique_ptr<MessageResponse>>& msg) {
  if (!open_) return false;
  for (const auto& each : msg) {
    if (each->msg_id_ >= 0) continue;
    each->msg_id_ = 0;
    if (!each->is_store_) continue;
    MessageRow row;
    row.session_id = cut(each->session_id_);
    row.session_type = each->session_type_;
    row.object_name = cut(each->object_name_);
    row.sender = cut(each->sender_);
    row.content = cut(each->content_);
    row.direction = each->is_receive_ ? 1 : 0;
    row.read_status = each->read_status_;
    row.sent_status = each->sent_status_;
    row.sent_time = each->sent_time_;
    row.client_uid = each->client_uid_;
    row.server_uid = cut(each->server_uid_);
    insert(row);
    each->msg_id_ = last_insert_;  // after a failure the id of the insert before
  }
  return true;
}

bool Model::is_message_exist(const std::string& session_id, SessionType session_type,
                             int64_t timestamp) {
  if (!open_) return false;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (row->sent_time > timestamp &&
        (row->direction == 1 || (row->direction == 0 && row->sent_status == 3))) {
      return true;
    }
  }
  return false;
}

bool Model::is_message_exist(const std::string& msg_uid, std::vector<std::string>& exist_uid) {
  const auto uids = quoted_list(msg_uid);
  if (!open_ || !uids) return false;
  std::multiset<std::string> found;
  for (const auto& [id, row] : tables_.messages) {
    if (uids->count(row.server_uid) > 0) found.insert(row.server_uid);
  }
  exist_uid.insert(exist_uid.end(), found.begin(), found.end());
  return true;
}

bool Model::is_message_exist(std::vector<UpdateValue>& msg) {
  if (!open_) return false;
  bool any = false;
  for (UpdateValue& each : msg) {
    const MessageRow* row =
        first_of(each.session_id_, each.session_type_, each.client_uid_, each.sender_);
    if (row == nullptr) continue;
    each.msg_id_ = low32(row->id);
    each.server_uid_old_ = row->server_uid;
    any = true;
  }
  return any;
}

void Model::set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time,
                                      const std::string& msg_uid) {
  MessageRow* row = message(msg_id);
  if (!open_ || row == nullptr) return;
  row->sent_status = 0;
  row->server_uid = cut(msg_uid);
  row->sent_time = sent_time;
}

void Model::set_send_time_for_dup_msg(const std::vector<UpdateValue>& msg) {
  for (const UpdateValue& each : msg) {
    if (each.server_uid_old_.empty() && each.msg_id_ > 0) {
      set_send_time_for_dup_msg(each.msg_id_, each.sent_time_, each.server_uid_new_);
    }
  }
}

bool Model::is_message_exist(const std::string& msg_uid) {
  return open_ && !msg_uid.empty() && first_of(msg_uid) != nullptr;
}

bool Model::is_message_exist(int64_t client_uid, const std::string& sender_id,
                             const std::string& session_id, int32_t session_type, int64_t& msg_id,
                             std::string& msg_uid) {
  if (!open_ || client_uid <= 0) return false;
  const MessageRow* row = first_of(session_id, session_type, client_uid, sender_id);
  if (row == nullptr) return false;
  msg_id = low32(row->id);
  msg_uid = row->server_uid;
  return true;
}

}  // namespace corvan_test
