#include "tools/store/message_row.h"

#include <fmt/format.h>

#include <cstdint>

#include "tools/ui/names.h"

namespace corvan_tool {

const std::string kMessageColumns =
    "id,session_id,session_type,object_name,sender,content,direction,read_status,sent_status,"
    "server_uid," +
    std::string(kMessageTime);

Corvan::MessageResponse message_at(const Row& row) {
  Corvan::MessageResponse m;
  m.msg_id_ = row.int64(0);
  m.session_id_ = row.text(1);
  m.session_type_ = Corvan::SessionType(row.int32(2));
  m.object_name_ = row.text(3);
  m.sender_ = row.text(4);
  m.content_ = row.text(5);
  m.is_receive_ = row.int32(6) != 0;
  m.read_status_ = row.int32(7);
  m.sent_status_ = row.int32(8);
  m.server_uid_ = row.text(9);
  m.sent_time_ = row.int64(10);
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

std::string listed_types(const std::vector<Corvan::SessionType>& types) {
  std::vector<int32_t> numbers;
  for (const Corvan::SessionType type : types.empty() ? all_types() : types)
    numbers.push_back(type);
  return fmt::format("{}", fmt::join(numbers, ","));
}

}  // namespace corvan_tool
