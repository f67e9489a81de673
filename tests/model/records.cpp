#include "tests/model/records.h"

#include "tests/model/sql_values.h"

namespace corvan_test {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;

bool in_type(const MessageRow& row, int32_t type) {
  if (type == 1) return row.direction == 1;
  if (type == 0) return row.sent_status == 0;
  return true;
}

MessageResponse listed(const MessageRow& row, const std::string& session_id,
                       SessionType session_type) {
  MessageResponse message;
  message.msg_id_ = low32(row.id);
  message.session_id_ = session_id;
  message.session_type_ = session_type;
  message.content_ = row.content;
  message.is_receive_ = low32(row.direction) != 0;
  message.read_status_ = low32(row.read_status);
  message.sent_time_ = row.sent_time;
  message.object_name_ = row.object_name;
  message.sent_status_ = low32(row.sent_status);
  message.sender_ = row.sender;
  message.server_uid_ = row.server_uid;
  return message;
}

void fold(const MessageRow& row, Session& conv) {
  conv.content_ = row.content;
  conv.object_name_ = row.object_name;
  conv.sender_ = row.sender;
  conv.is_recieve_ = low32(row.direction);
  conv.read_status_ = low32(row.read_status);
  conv.sent_status_ = low32(row.sent_status);
  conv.session_time_ = row.sent_time;
  conv.server_uid_ = row.server_uid;
}

void fold(const SessionRow& row, Session& conv) {
  conv.title_ = row.title;
  conv.draft_ = row.draft;
  conv.is_top_ = low32(row.is_top);
  conv.session_time_ = row.session_time;
  conv.unread_count_ = low32(row.unread_count);
  conv.mention_count_ = low32(row.mention_count);
  conv.silence_ = low32(row.silence);
  conv.latest_id_ = low32(row.latest_id);
}

void hand_out(const Session& conv, SessionInfo& info) {
  info.title_ = conv.title_;
  info.draft_ = conv.draft_;
  info.is_top_ = conv.is_top_;
  info.silence_ = conv.silence_;
  info.unread_count_ = conv.unread_count_;
  info.mention_count_ = conv.mention_count_;
  info.session_time = conv.session_time_;
  info.message_.session_id_ = info.session_id_;
  info.message_.session_type_ = SessionType(info.session_type_);
  info.message_.msg_id_ = conv.latest_id_;
  info.message_.is_receive_ = conv.is_recieve_ != 0;
  info.message_.content_ = conv.content_;
  info.message_.object_name_ = conv.object_name_;
  info.message_.sender_ = conv.sender_;
  info.message_.server_uid_ = conv.server_uid_;
  info.message_.read_status_ = conv.read_status_;
  info.message_.sent_status_ = conv.sent_status_;
}

bool same_conversation(const Session& a, const Session& b) {
  return a.session_id_ == b.session_id_ && a.session_type_ == b.session_type_;
}

}  // namespace corvan_test
