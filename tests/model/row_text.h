// Rows of the model as text, like the result of a query for their columns.

#ifndef TESTS_MODEL_ROW_TEXT_H_
#define TESTS_MODEL_ROW_TEXT_H_

#include <cstdint>
#include <string>

#include "tests/model/model.h"

namespace corvan_test {

inline std::string column(const std::string& value) {
  return value;
}
inline std::string column(int64_t value) {
  return std::to_string(value);
}

template <typename First, typename... Columns>
std::string row_of(const First& first, const Columns&... columns) {
  std::string row = column(first);
  ((row += "|" + column(columns)), ...);
  return row;
}

// The columns of t_message, t_session and t_sync in the order of their creation.
inline std::string row_text(const MessageRow& m) {
  return row_of(m.id, m.session_id, m.session_type, m.object_name, m.content, m.sender, m.direction,
                m.sent_status, m.read_status, m.is_mention, m.sent_time, m.client_uid,
                m.server_uid);
}
inline std::string row_text(const SessionRow& s) {
  return row_of(s.session_id, s.session_type, s.title, s.draft, s.is_top, s.session_time,
                s.unread_count, s.mention_count, s.silence, s.latest_id, s.read_time,
                s.receipt_time);
}
inline std::string row_text(const std::string& user, const SyncRow& s) {
  return row_of(user, s.receive_time, s.sent_time);
}

}  // namespace corvan_test

#endif  // TESTS_MODEL_ROW_TEXT_H_
