#include "tools/message_output.h"

#include "tools/names.h"

namespace corvan_tool {

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
