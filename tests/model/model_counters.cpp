#include "tests/model/model.h"

#include "tests/model/sql_values.h"

namespace corvan_test {

using Corvan::SessionType;

// ---- Counters, read and receipt times -----------------------------------------------------------

bool Model::sync_unread(const std::string& session_id, int32_t session_type, int64_t send_time) {
  int32_t unread = 0;
  int32_t mention = 0;
  if (!get_unred_mention(session_id, session_type, send_time, unread, mention)) return false;
  SessionRow* row = session(session_id, session_type);
  if (row == nullptr) return true;
  row->unread_count = unread;
  row->mention_count = mention;
  row->read_time = send_time;
  return true;
}

bool Model::clear_unread(const std::string& session_id, SessionType session_type) {
  start_transaction();
  int64_t read_time = 0;
  get_maxtime(read_time, session_type, session_id, 1);
  const bool marked = update_message_status(session_id, session_type);
  if (marked) set_unread_readtime(session_id, session_type, read_time);
  commit_transaction();
  return marked;
}

void Model::get_receipt_time(const std::string& session_id, int32_t session_type,
                             int64_t& receipt_time) {
  const SessionRow* row = session(session_id, session_type);
  if (open_ && row != nullptr) receipt_time = row->receipt_time;
}

bool Model::get_total_unread_count(int32_t& unread) {
  return get_cate_unread_count({}, unread, true);
}

bool Model::get_unread_count(const std::string& session_id, SessionType session_type,
                             int32_t& unread) {
  if (!open_) return false;
  const SessionRow* row = session(session_id, session_type);
  if (row != nullptr) unread = low32(row->unread_count);
  return true;
}

bool Model::get_message_count(const std::string& session_id, SessionType session_type,
                              int32_t& unread) {
  if (!open_) return false;
  unread = static_cast<int32_t>(messages(session_id, session_type).size());
  return true;
}

bool Model::get_cate_unread_count(const std::vector<SessionType>& entry, int32_t& unread,
                                  bool with_dnd) {
  if (!open_) return false;
  int64_t sum = 0;
  for (const SessionRow& row : tables_.sessions) {
    if (among(entry, row.session_type) && (with_dnd || row.silence == 0)) sum += row.unread_count;
  }
  unread = low32(sum);
  return true;
}

bool Model::get_unread_mention_count(const std::vector<SessionType>& entry, int32_t& unread,
                                     int32_t& mention) {
  if (!open_) return false;
  int64_t unread_sum = 0;
  int64_t mention_sum = 0;
  for (const SessionRow& row : tables_.sessions) {
    if (!among(entry, row.session_type)) continue;
    unread_sum += row.unread_count;
    mention_sum += row.mention_count;
  }
  unread = low32(unread_sum);
  mention = low32(mention_sum);
  return true;
}

bool Model::set_unread_by_value(const std::string& session_id, int32_t session_type, int32_t unread,
                                int32_t mention) {
  if (unread == 0) return true;
  if (!open_) return false;
  SessionRow* row = session(session_id, session_type);
  if (row == nullptr) return true;
  row->unread_count -= unread > 0 ? unread : -1;
  if (mention > 0) row->mention_count -= mention;
  return true;
}

bool Model::get_unred_mention(const std::string& session_id, int32_t session_type,
                              int64_t send_time, int32_t& unread, int32_t& mention) {
  if (!open_) return false;
  int64_t unread_sum = 0;
  int64_t mention_sum = 0;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (row->sent_time <= send_time || row->read_status != 0 || row->direction != 2) continue;
    ++unread_sum;
    mention_sum += row->is_mention;
  }
  unread = low32(unread_sum);
  mention = low32(mention_sum);
  return true;
}

void Model::set_unread_readtime(const std::string& session_id, int32_t session_type,
                                int64_t read_time) {
  SessionRow* row = session(session_id, session_type);
  if (!open_ || row == nullptr) return;
  row->unread_count = 0;
  row->mention_count = 0;
  row->read_time = read_time;
}

void Model::set_receipttime(const std::string& session_id, int32_t session_type,
                            int64_t receipt_time) {
  SessionRow* row = session(session_id, session_type);
  if (open_ && row != nullptr) row->receipt_time = receipt_time;
}

void Model::get_receipttime(const std::string& session_id, int32_t session_type,
                            int64_t& receipt_time) {
  get_receipt_time(session_id, session_type, receipt_time);
}

}  // namespace corvan_test
