#include "tests/model/model.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "tests/model/records.h"
#include "tests/model/sql_values.h"

namespace corvan_test {

// ---- Rows ---------------------------------------------------------------------------------------

// If no id is left, the insert fails and SQLite rolls back the whole transaction.
bool Model::insert(MessageRow row) {
  if (tables_.largest_id == std::numeric_limits<int64_t>::max()) {
    roll_back();
    return false;
  }
  row.id = ++tables_.largest_id;
  last_insert_ = row.id;
  tables_.messages[row.id] = std::move(row);
  return true;
}

void Model::insert(SessionRow row) {
  row.row_id = tables_.sessions.empty() ? 1 : tables_.sessions.back().row_id + 1;
  last_insert_ = row.row_id;
  tables_.sessions.push_back(std::move(row));
}

void Model::roll_back() {
  if (in_transaction_) tables_ = before_;
  in_transaction_ = false;
}

// Compacting the file fails inside a transaction.
bool Model::compact() const {
  return open_ && !in_transaction_;
}

MessageRow* Model::message(int64_t id) {
  const auto found = tables_.messages.find(id);
  return found == tables_.messages.end() ? nullptr : &found->second;
}

SessionRow* Model::session(const std::string& session_id, int64_t session_type) {
  for (SessionRow& row : tables_.sessions) {
    if (row.session_id == cut(session_id) && row.session_type == session_type) return &row;
  }
  return nullptr;
}

std::vector<MessageRow*> Model::messages(const std::string& session_id, int64_t session_type) {
  std::vector<MessageRow*> found;
  for (auto& [id, row] : tables_.messages) {
    if (row.session_id == cut(session_id) && row.session_type == session_type) {
      found.push_back(&row);
    }
  }
  std::stable_sort(found.begin(), found.end(), [](const MessageRow* a, const MessageRow* b) {
    return a->sent_time < b->sent_time;
  });
  return found;
}

const MessageRow* Model::newest(const std::string& session_id, int64_t session_type, int32_t type) {
  const MessageRow* last = nullptr;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (in_type(*row, type)) last = row;
  }
  return last;
}

const MessageRow* Model::first_of(const std::string& server_uid) const {
  for (const auto& [id, row] : tables_.messages) {
    if (row.server_uid == cut(server_uid)) return &row;
  }
  return nullptr;
}

const MessageRow* Model::first_of(const std::string& session_id, int64_t session_type,
                                  int64_t client_uid, const std::string& sender) const {
  for (const auto& [id, row] : tables_.messages) {
    if (row.session_id == cut(session_id) && row.session_type == session_type &&
        row.client_uid == client_uid && row.sender == cut(sender)) {
      return &row;
    }
  }
  return nullptr;
}

void Model::plant(const MessageRow& row) {
  tables_.messages[row.id] = row;
  tables_.largest_id = std::max(tables_.largest_id, row.id);
}

void Model::plant(const SessionRow& row) {
  SessionRow planted = row;
  planted.row_id = tables_.sessions.empty() ? 1 : tables_.sessions.back().row_id + 1;
  const auto replaced =
      std::remove_if(tables_.sessions.begin(), tables_.sessions.end(), [&](const SessionRow& each) {
        return each.session_id == row.session_id && each.session_type == row.session_type;
      });
  tables_.sessions.erase(replaced, tables_.sessions.end());
  tables_.sessions.push_back(planted);
}

// ---- Lifecycle ----------------------------------------------------------------------------------

bool Model::open(const std::string& user) {
  if (!open_) last_insert_ = 0;
  open_ = true;
  user_ = user;
  clear_sendstatus(true);
  return true;
}

void Model::close() {
  roll_back();
  open_ = false;
}

void Model::clear_sendstatus(bool) {
  if (!open_) return;
  for (auto& [id, row] : tables_.messages) {
    if (row.sent_status == 1) row.sent_status = 2;
  }
}

// ---- Transactions and sync times ----------------------------------------------------------------

bool Model::start_transaction() {
  if (!open_ || in_transaction_) return false;
  before_ = tables_;
  in_transaction_ = true;
  return true;
}

bool Model::commit_transaction() {
  return std::exchange(in_transaction_, false);
}

bool Model::set_sync_time(int64_t sync_time, bool is_receive) {
  int64_t recv_time = 0;
  int64_t sent_time = 0;
  get_sync_time(&recv_time, &sent_time);
  int64_t& mark = is_receive ? recv_time : sent_time;
  if (mark >= sync_time || !open_) return false;
  mark = sync_time;
  int64_t row_id = 1;
  for (const auto& [user, row] : tables_.syncs) row_id = std::max(row_id, row.row_id + 1);
  tables_.syncs[cut(user_)] = {row_id, recv_time, sent_time};
  last_insert_ = row_id;
  return true;
}

bool Model::get_sync_time(int64_t* recv_time, int64_t* sent_time) const {
  if (!open_) return false;
  const auto found = tables_.syncs.find(cut(user_));
  if (found == tables_.syncs.end()) return true;
  *recv_time = found->second.receive_time;
  if (sent_time != nullptr) *sent_time = found->second.sent_time;
  return true;
}

}  // namespace corvan_test
