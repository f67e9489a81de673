#include "tests/support/operations/results.h"

#include <algorithm>
#include <sstream>

#include "tests/support/operations/texts.h"

namespace corvan_test {

std::string one(bool value) {
  return value ? "true" : "false";
}

std::string one(const std::string& value) {
  return value;
}

std::string one(const char* value) {
  return value;
}

std::string one(int32_t value) {
  return std::to_string(value);
}

std::string one(int64_t value) {
  return std::to_string(value);
}

std::string one(const Corvan::MessageResponse& m) {
  std::ostringstream out;
  out << m.msg_id_ << ":" << m.session_id_ << ":" << m.session_type_ << ":" << m.sender_ << ":"
      << m.object_name_ << ":" << m.content_.substr(0, 5) << ":" << m.server_uid_ << ":"
      << m.is_receive_ << m.read_status_ << m.sent_status_ << ":" << m.sent_time_;
  return out.str();
}

std::string one(const Corvan::Session& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.is_top_ << ":" << s.session_time_
      << ":" << s.unread_count_ << ":" << s.mention_count_ << ":" << s.latest_id_ << ":"
      << s.content_.substr(0, 5);
  return out.str();
}

std::string one(const Corvan::SessionInfo& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.is_top_ << ":" << s.session_time << ":"
      << s.unread_count_ << ":" << s.mention_count_ << ":" << s.message_.msg_id_ << ":"
      << s.message_.content_.substr(0, 5);
  return out.str();
}

std::string one(const Corvan::UpdateValue& u) {
  return std::to_string(u.msg_id_) + ":" + u.server_uid_old_;
}

std::vector<std::string> first(const std::vector<std::string>& all, int rows) {
  return {all.begin(), all.begin() + std::max(rows, 0)};
}

std::string page_text(const std::vector<std::string>& page) {
  return text(!page.empty(), page);
}

std::string insert_and_move(Answers& a) {
  if (!a.done(kInsertMessage)) return text(-1);
  const int64_t id = a.last_row_id();
  if (a.row(kSessionExists)) {
    a.run(kReadSession);
    a.run(kMoveSession);
  } else {
    a.run(kAddSession);
  }
  return text(id);
}

}  // namespace corvan_test
