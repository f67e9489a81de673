#include "tools/store/message_row.h"

#include "tools/store/connection.h"
#include "tools/ui/names.h"

namespace corvan_tool {

const std::string kMessageColumns =
    "id,session_id,session_type,object_name,sender,content,direction,read_status,sent_status,"
    "server_uid," +
    std::string(kMessageTime);

Corvan::MessageResponse message_at(sqlite3_stmt* row) {
  Corvan::MessageResponse m;
  m.msg_id_ = sqlite3_column_int64(row, 0);
  m.session_id_ = text_at(row, 1);
  m.session_type_ = Corvan::SessionType(sqlite3_column_int(row, 2));
  m.object_name_ = text_at(row, 3);
  m.sender_ = text_at(row, 4);
  m.content_ = text_at(row, 5);
  m.is_receive_ = sqlite3_column_int(row, 6) != 0;
  m.read_status_ = sqlite3_column_int(row, 7);
  m.sent_status_ = sqlite3_column_int(row, 8);
  m.server_uid_ = text_at(row, 9);
  m.sent_time_ = sqlite3_column_int64(row, 10);
  return m;
}

Json message_json(const Corvan::MessageResponse& m, bool with_time) {
  Json json = {
      {"msg_id", m.msg_id_},
      {"session_id", m.session_id_},
      {"session_type", static_cast<int32_t>(m.session_type_)},
      {"object_name", m.object_name_},
      {"sender", m.sender_},
      {"content", m.content_},
      {"is_receive", m.is_receive_},
      {"read_status", m.read_status_},
      {"sent_status", m.sent_status_},
      {"server_uid", m.server_uid_},
  };
  if (with_time) json["sent_time"] = m.sent_time_;
  return json;
}

std::string state_text(const Corvan::MessageResponse& m) {
  return m.is_receive_ ? read_status_name(m.read_status_) : sent_status_name(m.sent_status_);
}

}  // namespace corvan_tool
