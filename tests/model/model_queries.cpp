#include "tests/model/model.h"

#include <algorithm>
#include <optional>

#include "tests/model/records.h"
#include "tests/model/sql_values.h"

namespace corvan_test {

using Corvan::MessageResponse;
using Corvan::SessionType;

// ---- Message queries ----------------------------------------------------------------------------

bool Model::get_message_by_id(MessageResponse& msg) {
  return query_message(msg, false);
}

bool Model::get_message_by_uid(MessageResponse& msg) {
  return query_message(msg, true);
}

bool Model::get_history_message_by_object_name(const std::string& session_id,
                                               SessionType session_type,
                                               const std::vector<std::string>& object_name,
                                               int64_t message_id, int32_t count,
                                               std::vector<MessageResponse>& msg, bool desc) {
  int64_t anchor = 0;
  if (message_id != 0) {
    anchor = get_send_time(message_id);
  } else {
    get_maxtime(anchor, session_type, session_id, 2);
    anchor = sum64(anchor, 1);
  }
  std::string list;
  for (const std::string& name : object_name) {
    if (!name.empty()) append(list, "'" + name + "'");
  }
  const auto names = quoted_list(list);
  if (!open_ || !names) return false;

  std::vector<MessageRow*> rows = messages(session_id, session_type);
  if (desc) std::reverse(rows.begin(), rows.end());
  std::size_t page = 0;
  for (const MessageRow* row : rows) {
    if (desc ? row->sent_time >= anchor : row->sent_time <= anchor) continue;
    if (!names->empty() && names->count(row->object_name) == 0) continue;
    if (full(page, count)) break;
    msg.push_back(listed(*row, session_id, session_type));
    ++page;
  }
  return !msg.empty();
}

bool Model::get_history_message_by_time(const std::string& session_id, SessionType session_type,
                                        const std::string& object_name, int64_t search_time,
                                        int32_t count, std::vector<MessageResponse>& msg,
                                        bool desc) {
  return get_history_message_by_object_name(session_id, session_type, {object_name}, search_time,
                                            count, msg, desc);
}

bool Model::get_mention_message(const std::string& session_id, SessionType session_type,
                                std::vector<MessageResponse>& msg) {
  if (!open_) return false;
  std::vector<MessageRow*> rows = messages(session_id, session_type);
  std::reverse(rows.begin(), rows.end());
  std::size_t page = 0;
  for (const MessageRow* row : rows) {
    if (row->is_mention != 1 || row->direction != 2 || full(page, 10)) continue;
    MessageResponse mention = listed(*row, session_id, session_type);
    mention.is_receive_ = true;
    mention.sent_status_ = 0;
    msg.insert(msg.begin(), mention);
    ++page;
  }
  return !msg.empty();
}

bool Model::get_matched_message(const std::string& session_id, SessionType session_type,
                                int64_t sent_time, int32_t left_count, int32_t right_count,
                                std::vector<MessageResponse>& msg) {
  start_transaction();
  std::vector<MessageResponse> older;
  std::vector<MessageResponse> newer;
  const bool any =
      get_history_message_by_time(session_id, session_type, "", sent_time, left_count, older, true);
  const int64_t second = any ? older[0].sent_time_ : sum64(sent_time, -1);
  get_history_message_by_time(session_id, session_type, "", second, sum32(right_count, 1), newer,
                              false);
  commit_transaction();
  msg.insert(msg.end(), older.begin(), older.end());
  msg.insert(msg.begin(), newer.rbegin(), newer.rend());
  return !msg.empty();
}

void Model::get_max_time(int64_t& sent_time, SessionType session_type,
                         const std::string& session_id, int32_t type) {
  get_maxtime(sent_time, session_type, session_id, type);
}

int64_t Model::get_max_message_id(SessionType session_type, const std::string& session_id,
                                  int32_t type) {
  if (!open_) return -1;
  std::optional<int64_t> largest;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (in_type(*row, type)) largest = std::max(largest.value_or(row->id), row->id);
  }
  return largest.value_or(-1);
}

bool Model::query_message(MessageResponse& msg, bool by_uid) {
  const MessageRow* row = by_uid ? first_of(msg.server_uid_) : message(msg.msg_id_);
  if (!open_ || row == nullptr) return false;
  msg.session_id_ = row->session_id;
  msg.session_type_ = SessionType(low32(row->session_type));
  msg.content_ = row->content;
  msg.is_receive_ = low32(row->direction) != 0;
  msg.read_status_ = low32(row->read_status);
  msg.sent_time_ = row->sent_time;
  msg.object_name_ = row->object_name;
  msg.sent_status_ = low32(row->sent_status);
  msg.sender_ = row->sender;
  if (by_uid) {
    msg.msg_id_ = low32(row->id);
  } else {
    msg.server_uid_ = row->server_uid;
  }
  return true;
}

bool Model::get_message_by_id(int64_t msg_id, std::string& session_id, int32_t& session_type,
                              bool& is_unread, bool& is_mention, int64_t& sent_time) {
  const MessageRow* row = message(msg_id);
  if (!open_ || row == nullptr) return false;
  session_id = row->session_id;
  session_type = low32(row->session_type);
  is_unread = low32(row->read_status) == 0;
  is_mention = low32(row->is_mention) == 1;
  sent_time = row->sent_time;
  return true;
}

void Model::get_maxtime(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                        int32_t type) {
  const MessageRow* row = newest(session_id, session_type, type);
  if (open_ && row != nullptr) sent_time = row->sent_time;
}

// ---- Read state and send time -------------------------------------------------------------------

int64_t Model::get_send_time(int64_t msg_id) {
  const MessageRow* row = message(msg_id);
  return open_ && msg_id >= 1 && row != nullptr ? row->sent_time : 0;
}

bool Model::update_message_status(const std::string& session_id, int32_t session_type) {
  if (!open_) return false;
  int64_t read_time = 0;
  get_readtime(session_id, session_type, read_time);
  for (MessageRow* row : messages(session_id, session_type)) {
    if (row->sent_time <= read_time || row->direction != 1) continue;
    if (row->read_status == 0) row->read_status = 1;
    row->is_mention = 0;
  }
  return true;
}

void Model::get_readtime(const std::string& session_id, int32_t session_type, int64_t& read_time) {
  const SessionRow* row = session(session_id, session_type);
  if (open_ && row != nullptr) read_time = row->read_time;
}

}  // namespace corvan_test
