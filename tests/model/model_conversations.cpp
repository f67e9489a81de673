#include "tests/model/model.h"

#include <algorithm>
#include <iterator>

#include "tests/model/sql_values.h"
#include "tests/support/clock.h"

namespace corvan_test {

using Corvan::SessionType;

// ---- Conversation rows and settings -------------------------------------------------------------

bool Model::set_is_top(const std::string& session_id, SessionType session_type, bool is_top,
                       bool create) {
  const bool exist = is_session_exist(session_id, session_type);
  if (!exist && !(is_top && create)) return true;
  if (!open_) return false;
  if (!exist) add_session(session_id, session_type, clock_now(), -1, "", 0, 0);
  SessionRow* row = session(session_id, session_type);
  row->is_top = is_top ? 1 : 0;
  if (!exist) row->session_time = clock_now();
  return true;
}

bool Model::set_message_draft(const std::string& session_id, SessionType session_type,
                              const std::string& draft) {
  if (!is_session_exist(session_id, session_type)) return draft.empty();
  SessionRow* row = session(session_id, session_type);
  row->draft = cut(draft);
  if (!draft.empty()) row->session_time = clock_now();
  return true;
}

bool Model::get_message_draft(const std::string&, SessionType, std::string&) {
  return false;
}

bool Model::set_silence(const std::string& session_id, SessionType session_type, int32_t status) {
  if (!open_) return false;
  SessionRow* row = session(session_id, session_type);
  if (row != nullptr) row->silence = status;
  return true;
}

bool Model::get_silence(const std::string& session_id, SessionType session_type, int32_t& status) {
  if (!is_session_exist(session_id, session_type)) return false;
  status = low32(session(session_id, session_type)->silence);
  if (status == 1) status = 0;
  return true;
}

bool Model::remove_session(const std::string& session_id, SessionType session_type) {
  if (!delete_session(session_id, session_type)) return false;
  update_message_status(session_id, session_type);
  return true;
}

bool Model::clear_session(const std::vector<SessionType>& entry) {
  if (!open_) return false;
  start_transaction();
  const auto kinds = number_list(kind_list(entry));
  for (const int64_t kind : *kinds) {
    const auto gone =
        std::remove_if(tables_.sessions.begin(), tables_.sessions.end(),
                       [&](const SessionRow& row) { return row.session_type == kind; });
    tables_.sessions.erase(gone, tables_.sessions.end());
    for (auto row = tables_.messages.begin(); row != tables_.messages.end();) {
      row = row->second.session_type == kind ? tables_.messages.erase(row) : std::next(row);
    }
  }
  commit_transaction();
  return true;
}

bool Model::common_session_operation(const std::string& session_id, int32_t session_type,
                                     const std::string& column) {
  const std::map<std::string, int64_t SessionRow::*> columns = {
      {"is_top", &SessionRow::is_top},
      {"silence", &SessionRow::silence},
      {"latest_id", &SessionRow::latest_id},
      {"unread_count", &SessionRow::unread_count}};
  const auto found = columns.find(column);
  if (!open_ || found == columns.end()) return false;
  SessionRow* row = session(session_id, session_type);
  if (row != nullptr) row->*found->second = 7;
  return true;
}

bool Model::is_session_exist(const std::string& session_id, int32_t session_type) {
  return open_ && session(session_id, session_type) != nullptr;
}

bool Model::add_session(const std::string& session_id, SessionType session_type,
                        int64_t create_time, int64_t msg_id, const std::string& name, int32_t count,
                        int32_t mention) {
  if (!open_ || is_session_exist(session_id, session_type)) return false;
  SessionRow row;
  row.session_id = cut(session_id);
  row.session_type = session_type;
  row.session_time = create_time == 0 ? clock_now() : create_time;
  row.title = cut(name);
  row.unread_count = count;
  row.mention_count = mention;
  row.latest_id = msg_id;
  insert(row);
  return true;
}

void Model::set_session_time(const std::string& session_id, SessionType session_type,
                             int64_t sent_time, const std::string& object_name, int64_t msg_id,
                             int32_t unread, int32_t mention, uint32_t profile) {
  int64_t session_time = 0;
  int64_t latest_id = -1;
  int32_t latest_unread = 0;
  int32_t latest_mention = 0;
  get_sessiontime(session_id, session_type, session_time, latest_id, latest_unread, latest_mention);
  if (sent_time <= session_time) {
    if ((profile & kHistory) != 0 && latest_id > 0) return;
    if ((profile & kInsertOnly) != 0) {
      if ((profile & kOwnTime) != 0 && latest_id > 0) msg_id = latest_id;
      sent_time = session_time;
    }
    if (object_name == "CV:QbNtf" && latest_id > 0) msg_id = latest_id;
  }
  if (!is_session_exist(session_id, session_type)) return;
  SessionRow* row = session(session_id, session_type);
  row->session_time = sent_time;
  row->unread_count = sum32(unread, latest_unread);
  row->mention_count = sum32(mention, latest_mention);
  row->latest_id = msg_id;
}

void Model::set_sessiontime(int64_t sent_time, int64_t msg_id, const std::string& session_id,
                            SessionType session_type) {
  int64_t session_time = 0;
  int64_t latest_id = -1;
  int32_t unread = 0;
  int32_t mention = 0;
  get_sessiontime(session_id, session_type, session_time, latest_id, unread, mention);
  if (sent_time <= session_time && latest_id >= 0) return;
  if (!is_session_exist(session_id, session_type)) return;
  session(session_id, session_type)->session_time = sent_time;
  session(session_id, session_type)->latest_id = msg_id;
}

void Model::get_sessiontime(const std::string& session_id, int32_t session_type, int64_t& time,
                            int64_t& msg_id, int32_t& unread, int32_t& mention) {
  const SessionRow* row = session(session_id, session_type);
  if (!open_ || row == nullptr) return;
  time = row->session_time;
  msg_id = low32(row->latest_id);
  unread = low32(row->unread_count);
  mention = low32(row->mention_count);
}

bool Model::delete_session(const std::string& session_id, int32_t session_type) {
  if (!open_) return false;
  const auto gone =
      std::remove_if(tables_.sessions.begin(), tables_.sessions.end(), [&](const SessionRow& row) {
        return row.session_id == cut(session_id) && row.session_type == session_type;
      });
  tables_.sessions.erase(gone, tables_.sessions.end());
  return true;
}

}  // namespace corvan_test
