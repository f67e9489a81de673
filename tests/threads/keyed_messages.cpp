#include "tests/threads/keyed_messages.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

std::string body(const std::string& key, const std::string& kind) {
  std::string text = key + "|" + kind;
  while (text.size() < 300) text += "|" + key;
  return text;
}

bool whole(const std::string& content, const std::string& kind, const std::string& sender) {
  const std::string key = content.substr(0, content.find('|'));
  const bool right_sender = sender == "me" || sender == "from " + key;
  return !key.empty() && content == body(key, kind) && right_sender;
}

bool whole(const MessageResponse& m) {
  return whole(m.content_, m.object_name_, m.sender_);
}

NewMessage message(const std::string& key) {
  return NewMessage().named(key).from("from " + key).text(body(key, kText));
}

int64_t save_into(CvDbSingleton& store, const NewMessage& m) {
  return store.save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                            m.is_receive, m.sent_status, m.read_status, m.is_mention, m.sent_time,
                            m.client_uid, m.server_uid, m.history, m.insert_only, m.is_count);
}

}  // namespace corvan_test
