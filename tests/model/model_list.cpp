#include "tests/model/model.h"

#include <algorithm>

#include "tests/model/records.h"
#include "tests/model/sql_values.h"

namespace corvan_test {

using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;

// ---- Conversation list --------------------------------------------------------------------------

bool Model::get_session_list_by_page(const std::vector<SessionType>& entry, int64_t sent_time,
                                     int32_t limit, std::vector<SessionInfo>& session) {
  if (sent_time == 0) page_ended_top_ = false;
  std::string kinds = kind_list(entry);
  std::vector<Session> page;
  if (!load_session(page, kinds, sent_time, limit, page_ended_top_)) return false;

  std::string ids;
  for (const Session& row : page) append(ids, std::to_string(row.latest_id_));
  std::vector<Session> latest;
  load_message(latest, ids);
  for (Session& row : page) {
    for (const Session& message : latest) {
      if (!same_conversation(row, message)) continue;
      row.content_ = message.content_;
      row.object_name_ = message.object_name_;
      row.sender_ = message.sender_;
      row.is_recieve_ = message.is_recieve_;
      row.read_status_ = message.read_status_;
      row.sent_status_ = message.sent_status_;
      row.server_uid_ = message.server_uid_;
      if (row.draft_.empty()) row.session_time_ = message.session_time_;
    }
  }

  // Sorts each run of rows with the same pin separately.
  for (auto run = page.begin(); run != page.end();) {
    const auto end = std::find_if(run, page.end(),
                                  [&](const Session& row) { return row.is_top_ != run->is_top_; });
    std::stable_sort(run, end, [](const Session& a, const Session& b) {
      return a.session_time_ > b.session_time_;
    });
    run = end;
  }

  for (const Session& row : page) {
    SessionInfo info;
    info.session_id_ = row.session_id_;
    info.session_type_ = row.session_type_;
    hand_out(row, info);
    session.push_back(info);
  }
  page_ended_top_ = page.back().is_top_ != 0;
  return true;
}

bool Model::get_session(SessionInfo& session) {
  Session conv;
  if (!load_session(conv, session.session_id_, session.session_type_)) return false;
  if (conv.latest_id_ != 0) load_message(conv);
  hand_out(conv, session);
  session.message_.sent_time_ = conv.session_time_;
  return true;
}

bool Model::load_session(std::vector<Session>& session, std::string& session_type,
                         int64_t timestamp, int32_t limit, bool is_top) {
  const auto kinds = number_list(session_type);
  if (!open_ || !kinds) return false;
  // Among the pinned without a time, the limit is bound in place of the time and the query fails.
  if (is_top && timestamp <= 0) return !session.empty();

  std::vector<SessionRow> rows;
  for (const SessionRow& row : tables_.sessions) {
    const bool older = row.session_time < timestamp;
    const bool wanted = is_top ? (older && row.is_top == 1) || row.is_top == 0
                               : timestamp <= 0 || (older && row.is_top == 0);
    if (wanted && kinds->count(row.session_type) > 0) rows.push_back(row);
  }
  // Among rows of equal time and kind, the row that was inserted later comes first.
  std::reverse(rows.begin(), rows.end());
  std::stable_sort(rows.begin(), rows.end(), [](const SessionRow& a, const SessionRow& b) {
    if (a.is_top != b.is_top) return a.is_top > b.is_top;
    if (a.session_time != b.session_time) return a.session_time > b.session_time;
    return a.session_type > b.session_type;
  });
  if (limit >= 0 && full(rows.size(), limit)) rows.resize(static_cast<std::size_t>(limit));

  for (const SessionRow& row : rows) {
    Session conv;
    conv.session_id_ = row.session_id;
    conv.session_type_ = low32(row.session_type);
    fold(row, conv);
    session.push_back(conv);
  }
  return !session.empty();
}

bool Model::load_session(Session& conv, const std::string& session_id, int32_t session_type) {
  if (!is_session_exist(session_id, session_type)) return false;
  fold(*session(session_id, session_type), conv);
  return true;
}

bool Model::load_message(std::vector<Session>& session, const std::string& msg_id) {
  const auto ids = number_list(msg_id);
  if (!open_ || !ids) return false;
  for (const int64_t id : *ids) {
    if (message(id) == nullptr) continue;
    Session conv;
    conv.session_id_ = message(id)->session_id;
    conv.session_type_ = low32(message(id)->session_type);
    fold(*message(id), conv);
    session.push_back(conv);
  }
  return true;
}

bool Model::load_message(Session& conv) {
  if (!open_ || message(conv.latest_id_) == nullptr) return false;
  fold(*message(conv.latest_id_), conv);
  return true;
}

bool Model::load_distinct_session_with_unread(std::vector<Session>& session,
                                              const std::string& msg_id) {
  const auto ids = number_list(msg_id);
  if (!open_ || !ids) return false;
  for (const int64_t id : *ids) {
    const MessageRow* row = message(id);
    if (row == nullptr) continue;
    Session conv;
    conv.session_id_ = row->session_id;
    conv.session_type_ = low32(row->session_type);
    conv.unread_count_ = low32(row->read_status) == 0 ? 1 : 0;
    conv.mention_count_ = low32(row->is_mention) == 1 ? 1 : 0;
    conv.session_time_ = row->sent_time;
    const bool marked = conv.unread_count_ == 1 || conv.mention_count_ == 1;
    const bool last_takes = !session.empty() && same_conversation(session.back(), conv);
    for (Session& each : session) {
      if (!same_conversation(each, conv)) continue;
      each.unread_count_ = sum32(each.unread_count_, conv.unread_count_);
      each.mention_count_ = sum32(each.mention_count_, conv.mention_count_);
    }
    if (marked && !last_takes) session.push_back(conv);
  }
  return !session.empty();
}

bool Model::load_session_with_latestid(std::vector<Session>& session, const std::string& msg_id) {
  const auto ids = number_list(msg_id);
  if (!open_ || !ids) return false;
  for (const int64_t id : *ids) {
    for (const SessionRow& row : tables_.sessions) {
      if (row.latest_id != id) continue;
      Session conv;
      conv.session_id_ = row.session_id;
      conv.session_type_ = low32(row.session_type);
      session.push_back(conv);
    }
  }
  return !session.empty();
}

bool Model::get_message_latestid(const std::string& session_id, int32_t session_type,
                                 int64_t& msg_id, int64_t& sent_time) {
  if (!open_) return false;
  const MessageRow* row = newest(session_id, session_type, 2);
  if (row == nullptr) return true;
  msg_id = low32(row->id);
  sent_time = row->sent_time;
  return true;
}

bool Model::set_message_latestid(const std::string& session_id, int32_t session_type,
                                 int64_t msg_id, int64_t sent_time) {
  if (!open_) return false;
  SessionRow* row = session(session_id, session_type);
  if (row == nullptr) return true;
  row->latest_id = msg_id;
  if (msg_id > 0) row->session_time = sent_time;
  return true;
}

}  // namespace corvan_test
