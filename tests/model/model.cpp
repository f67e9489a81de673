#include "tests/model/model.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <optional>
#include <set>
#include <utility>

#include "tests/support/clock.h"

namespace corvan_test {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

namespace {

constexpr int32_t kDone = 101;
constexpr int32_t kNotOpen = -1;
constexpr int kHistory = 1;
constexpr int kInsertOnly = 2;
constexpr int kOwnTime = 4;

// A bound text ends at its first zero byte.
std::string cut(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

// What the 32-bit column reader makes of an integer.
int32_t low32(int64_t value) {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

int64_t sum64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int32_t sum32(int32_t a, int32_t b) {
  return low32(int64_t{a} + b);
}

// A list pasted into a statement: quoted texts, or numbers, with commas between. Nothing when the
// statement cannot be parsed, as with a zero byte, which ends it before the list does.
std::optional<std::set<std::string>> quoted_list(const std::string& text) {
  std::set<std::string> list;
  std::size_t at = 0;
  while (at < text.size()) {
    if (!list.empty() && text[at++] != ',') return std::nullopt;
    if (at >= text.size() || text[at++] != '\'') return std::nullopt;
    std::string element;
    for (;; ++at) {
      if (at >= text.size() || text[at] == '\0') return std::nullopt;
      if (text[at] == '\'' && text.compare(at, 2, "''") != 0) break;
      if (text[at] == '\'') ++at;
      element += text[at];
    }
    list.insert(element);
    ++at;
  }
  return list;
}

std::optional<std::set<int64_t>> number_list(const std::string& text) {
  std::set<int64_t> list;
  std::size_t at = 0;
  while (at < text.size()) {
    if (!list.empty() && text[at++] != ',') return std::nullopt;
    std::size_t end = text.find(',', at);
    if (end == std::string::npos) end = text.size();
    const std::string number = text.substr(at, end - at);
    const std::size_t digits = number.substr(0, 1) == "-" ? 1 : 0;
    if (number.size() == digits ||
        number.find_first_not_of("0123456789", digits) != std::string::npos) {
      return std::nullopt;
    }
    list.insert(std::stoll(number));
    at = end;
  }
  return list;
}

void append(std::string& list, const std::string& element) {
  if (!list.empty()) list += ",";
  list += element;
}

std::string kind_list(const std::vector<SessionType>& entry) {
  std::string list;
  for (const SessionType kind : entry) {
    if (kind >= Corvan::CV_PRIVATE && kind <= Corvan::CV_SYSTEM) append(list, std::to_string(kind));
  }
  return list;
}

// Those of the listed kinds; of every kind when none is listed.
bool among(const std::vector<SessionType>& entry, int64_t kind) {
  const std::set<int64_t> kinds = number_list(kind_list(entry)).value();
  return kinds.empty() || kinds.count(kind) > 0;
}

// A negative limit is none.
bool full(std::size_t size, int32_t limit) {
  return limit >= 0 && size >= static_cast<std::size_t>(limit);
}

bool in_type(const MessageRow& row, int32_t type) {
  if (type == 1) return row.direction == 1;
  if (type == 0) return row.sent_status == 0;
  return true;
}

// A message as every list hands it out.
MessageResponse listed(const MessageRow& row, const std::string& session_id,
                       SessionType session_type) {
  MessageResponse message;
  message.msg_id_ = low32(row.id);
  message.session_id_ = session_id;
  message.session_type_ = session_type;
  message.content_ = row.content;
  message.is_receive_ = low32(row.direction) != 0;
  message.read_status_ = low32(row.read_status);
  message.sent_time_ = row.sent_time;
  message.object_name_ = row.object_name;
  message.sent_status_ = low32(row.sent_status);
  message.sender_ = row.sender;
  message.server_uid_ = row.server_uid;
  return message;
}

// The message's part of a Session.
void fold(const MessageRow& row, Session& conv) {
  conv.content_ = row.content;
  conv.object_name_ = row.object_name;
  conv.sender_ = row.sender;
  conv.is_recieve_ = low32(row.direction);
  conv.read_status_ = low32(row.read_status);
  conv.sent_status_ = low32(row.sent_status);
  conv.session_time_ = row.sent_time;
  conv.server_uid_ = row.server_uid;
}

// The row's part of a Session, without its id and kind.
void fold(const SessionRow& row, Session& conv) {
  conv.title_ = row.title;
  conv.draft_ = row.draft;
  conv.is_top_ = low32(row.is_top);
  conv.session_time_ = row.session_time;
  conv.unread_count_ = low32(row.unread_count);
  conv.mention_count_ = low32(row.mention_count);
  conv.silence_ = low32(row.silence);
  conv.latest_id_ = low32(row.latest_id);
}

void hand_out(const Session& conv, SessionInfo& info) {
  info.title_ = conv.title_;
  info.draft_ = conv.draft_;
  info.is_top_ = conv.is_top_;
  info.silence_ = conv.silence_;
  info.unread_count_ = conv.unread_count_;
  info.mention_count_ = conv.mention_count_;
  info.session_time = conv.session_time_;
  info.message_.session_id_ = info.session_id_;
  info.message_.session_type_ = SessionType(info.session_type_);
  info.message_.msg_id_ = conv.latest_id_;
  info.message_.is_receive_ = conv.is_recieve_ != 0;
  info.message_.content_ = conv.content_;
  info.message_.object_name_ = conv.object_name_;
  info.message_.sender_ = conv.sender_;
  info.message_.server_uid_ = conv.server_uid_;
  info.message_.read_status_ = conv.read_status_;
  info.message_.sent_status_ = conv.sent_status_;
}

bool same_conversation(const Session& a, const Session& b) {
  return a.session_id_ == b.session_id_ && a.session_type_ == b.session_type_;
}

}  // namespace

// ---- Rows ---------------------------------------------------------------------------------------

// Without an id left the insert fails, and SQLite gives up the whole transaction.
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

// ---- Saving messages ----------------------------------------------------------------------------

int64_t Model::save_message(const std::string& session_id, SessionType session_type,
                            const std::string& object_name, const std::string& sender,
                            const std::string& content, bool is_receive, int32_t sent_status,
                            int32_t, bool is_mention, int64_t sent_time, int64_t client_uid,
                            const std::string& server_uid, bool history, bool insert_only,
                            bool is_count) {
  const bool own_time = insert_only && sent_time > 0;
  if (sent_time < 1) sent_time = clock_now();
  if (is_message_exist(server_uid)) return -1;
  if (!insert_only && !history) {
    int64_t old_id = 0;
    std::string old_uid;
    if (is_message_exist(client_uid, is_receive ? sender : user_, session_id, session_type, old_id,
                         old_uid)) {
      if (!old_uid.empty()) return -1;
      set_send_time_for_dup_msg(old_id, sent_time, server_uid);
      return old_id;
    }
  }

  MessageRow row;
  row.session_id = cut(session_id);
  row.session_type = session_type;
  row.object_name = cut(object_name);
  row.content = cut(content);
  row.sender = cut(sender);
  row.direction = is_receive ? 1 : 0;
  row.sent_status = sent_status;
  row.read_status = !is_receive || session_type == Corvan::CV_CHATROOM ? 1 : 0;
  row.is_mention = is_mention ? 1 : 0;
  row.sent_time = sent_time;
  row.client_uid = client_uid;
  row.server_uid = cut(server_uid);
  if (!open_ || !insert(row)) return -1;
  const int64_t id = last_insert_;

  const int32_t unread = is_count ? 1 : 0;
  const int32_t mention = is_mention ? 1 : 0;
  if (is_session_exist(session_id, session_type)) {
    const int profile =
        (history ? kHistory : 0) + (insert_only ? kInsertOnly : 0) + (own_time ? kOwnTime : 0);
    set_session_time(session_id, session_type, sent_time, object_name, id, unread, mention,
                     static_cast<uint32_t>(profile));
  } else {
    add_session(session_id, session_type, sent_time, id, "", unread, mention);
  }
  return id;
}

bool Model::save_message(const std::vector<std::unique_ptr<MessageResponse>>& msg) {
  if (!open_) return false;
  for (const auto& each : msg) {
    if (each->msg_id_ >= 0) continue;
    each->msg_id_ = 0;
    if (!each->is_store_) continue;
    MessageRow row;
    row.session_id = cut(each->session_id_);
    row.session_type = each->session_type_;
    row.object_name = cut(each->object_name_);
    row.sender = cut(each->sender_);
    row.content = cut(each->content_);
    row.direction = each->is_receive_ ? 1 : 0;
    row.read_status = each->read_status_;
    row.sent_status = each->sent_status_;
    row.sent_time = each->sent_time_;
    row.client_uid = each->client_uid_;
    row.server_uid = cut(each->server_uid_);
    insert(row);
    each->msg_id_ = last_insert_;  // after a failure the one before
  }
  return true;
}

bool Model::is_message_exist(const std::string& session_id, SessionType session_type,
                             int64_t timestamp) {
  if (!open_) return false;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (row->sent_time > timestamp &&
        (row->direction == 1 || (row->direction == 0 && row->sent_status == 3))) {
      return true;
    }
  }
  return false;
}

bool Model::is_message_exist(const std::string& msg_uid, std::vector<std::string>& exist_uid) {
  const auto uids = quoted_list(msg_uid);
  if (!open_ || !uids) return false;
  std::multiset<std::string> found;
  for (const auto& [id, row] : tables_.messages) {
    if (uids->count(row.server_uid) > 0) found.insert(row.server_uid);
  }
  exist_uid.insert(exist_uid.end(), found.begin(), found.end());
  return true;
}

bool Model::is_message_exist(std::vector<UpdateValue>& msg) {
  if (!open_) return false;
  bool any = false;
  for (UpdateValue& each : msg) {
    const MessageRow* row =
        first_of(each.session_id_, each.session_type_, each.client_uid_, each.sender_);
    if (row == nullptr) continue;
    each.msg_id_ = low32(row->id);
    each.server_uid_old_ = row->server_uid;
    any = true;
  }
  return any;
}

void Model::set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time,
                                      const std::string& msg_uid) {
  MessageRow* row = message(msg_id);
  if (!open_ || row == nullptr) return;
  row->sent_status = 0;
  row->server_uid = cut(msg_uid);
  row->sent_time = sent_time;
}

void Model::set_send_time_for_dup_msg(const std::vector<UpdateValue>& msg) {
  for (const UpdateValue& each : msg) {
    if (each.server_uid_old_.empty() && each.msg_id_ > 0) {
      set_send_time_for_dup_msg(each.msg_id_, each.sent_time_, each.server_uid_new_);
    }
  }
}

bool Model::is_message_exist(const std::string& msg_uid) {
  return open_ && !msg_uid.empty() && first_of(msg_uid) != nullptr;
}

bool Model::is_message_exist(int64_t client_uid, const std::string& sender_id,
                             const std::string& session_id, int32_t session_type, int64_t& msg_id,
                             std::string& msg_uid) {
  if (!open_ || client_uid <= 0) return false;
  const MessageRow* row = first_of(session_id, session_type, client_uid, sender_id);
  if (row == nullptr) return false;
  msg_id = low32(row->id);
  msg_uid = row->server_uid;
  return true;
}

// ---- Message state ------------------------------------------------------------------------------

void Model::set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                          const std::string& session_id, SessionType session_type,
                          int32_t fail_reason) {
  start_transaction();
  if (set_sendtime(msg_id, sent_time, msg_uid, fail_reason) == kDone && sent_time > 0) {
    set_sessiontime(sent_time, msg_id, session_id, session_type);
  }
  commit_transaction();
}

bool Model::update_sent_status(int64_t msg_id, int32_t sent_status) {
  return common_message_int(msg_id, sent_status, "sent_status");
}

bool Model::set_read_status(int64_t msg_id, int32_t read_status) {
  start_transaction();
  std::string session_id;
  int32_t session_type = 0;
  bool is_unread = false;
  bool is_mention = false;
  int64_t sent_time = 0;
  const bool found =
      get_message_by_id(msg_id, session_id, session_type, is_unread, is_mention, sent_time);
  if (found) {
    message(msg_id)->read_status = read_status;
    message(msg_id)->is_mention = 0;
    int32_t unread = 0;
    if (read_status >= 1 && is_unread) unread = 1;
    if (read_status == 0 && !is_unread) unread = -1;
    if (unread != 0) set_unread_by_value(session_id, session_type, unread, is_mention ? 1 : 0);
  }
  commit_transaction();
  return found;
}

bool Model::update_message_receipt_status(const std::string& session_id, SessionType session_type,
                                          int64_t sent_time) {
  if (!open_) return false;
  int64_t receipt_time = 0;
  get_receipt_time(session_id, session_type, receipt_time);
  const bool later = receipt_time < sent_time;
  for (MessageRow* row : messages(session_id, session_type)) {
    if (later && row->sent_time <= receipt_time) continue;
    if (row->sent_time <= sent_time && row->direction == 0 && row->sent_status == 0) {
      row->sent_status = 3;
    }
  }
  if (later) set_receipttime(session_id, session_type, sent_time);
  return true;
}

bool Model::set_message_content(int64_t msg_id, const std::string& content,
                                const std::string& object_name) {
  if (!open_) return false;
  MessageRow* row = message(msg_id);
  if (row == nullptr) return true;
  row->content = cut(content);
  if (!object_name.empty()) {
    row->object_name = cut(object_name);
    row->is_mention = 0;
  }
  return true;
}

void Model::get_client_uid(const std::string& session_id, SessionType session_type,
                           int64_t& client_uid) {
  if (!open_) return;
  const MessageRow* row = newest(session_id, session_type, 0);
  if (row != nullptr) client_uid = row->client_uid;
}

void Model::get_client_uid(int64_t msg_id, int64_t& client_uid) {
  if (open_ && message(msg_id) != nullptr) client_uid = message(msg_id)->client_uid;
}

int32_t Model::set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                            int32_t fail_reason) {
  if (!open_) return kNotOpen;
  MessageRow* row = message(msg_id);
  if (row == nullptr) return kDone;
  row->sent_status = fail_reason != 0 ? 2 : 0;
  if (!msg_uid.empty()) row->server_uid = cut(msg_uid);
  if (sent_time > 0) row->sent_time = sent_time;
  return kDone;
}

bool Model::common_message_int(int64_t msg_id, int32_t value, const std::string& column) {
  const std::map<std::string, int64_t MessageRow::*> columns = {
      {"direction", &MessageRow::direction},
      {"is_mention", &MessageRow::is_mention},
      {"read_status", &MessageRow::read_status},
      {"sent_status", &MessageRow::sent_status}};
  const auto found = columns.find(column);
  if (!open_ || found == columns.end()) return false;
  if (message(msg_id) != nullptr) message(msg_id)->*found->second = value;
  return true;
}

bool Model::common_message_text(int64_t msg_id, const std::string& value,
                                const std::string& column) {
  const std::map<std::string, std::string MessageRow::*> columns = {
      {"object_name", &MessageRow::object_name},
      {"sender", &MessageRow::sender},
      {"server_uid", &MessageRow::server_uid}};
  const auto found = columns.find(column);
  if (!open_ || found == columns.end()) return false;
  if (message(msg_id) != nullptr) message(msg_id)->*found->second = cut(value);
  return true;
}

// ---- Deleting and clearing messages -------------------------------------------------------------

bool Model::delete_message(const std::vector<int64_t>& msg_id_v) {
  if (!open_) return false;
  std::string list;
  for (const int64_t id : msg_id_v) {
    if (id >= 1) append(list, std::to_string(id));
  }
  start_transaction();
  std::vector<Session> unread;
  std::vector<Session> pointing;
  load_distinct_session_with_unread(unread, list);
  load_session_with_latestid(pointing, list);
  for (const int64_t id : msg_id_v) {
    if (id >= 1) tables_.messages.erase(id);
  }
  for (const Session& each : unread) {
    if (each.unread_count_ <= 0) continue;
    set_unread_by_value(each.session_id_, each.session_type_, each.unread_count_,
                        each.mention_count_);
  }
  for (const Session& each : pointing) {
    int64_t id = -1;
    int64_t time = 0;
    get_message_latestid(each.session_id_, each.session_type_, id, time);
    set_message_latestid(each.session_id_, each.session_type_, id, time);
  }
  commit_transaction();
  return true;
}

void Model::delete_message(const std::string& session_id, SessionType session_type,
                           const std::vector<std::string>& msg) {
  std::string list;
  for (const std::string& uid : msg) append(list, "'" + uid + "'");
  const auto uids = quoted_list(list);
  if (!open_ || !uids) return;
  for (auto row = tables_.messages.begin(); row != tables_.messages.end();) {
    row = uids->count(row->second.server_uid) > 0 ? tables_.messages.erase(row) : std::next(row);
  }
  int64_t id = -1;
  int64_t time = 0;
  get_message_latestid(session_id, session_type, id, time);
  set_message_latestid(session_id, session_type, id, time);
}

bool Model::clear_message(const std::string& session_id, SessionType session_type, bool clean) {
  const bool deleted = delete_message(session_id, int32_t{session_type});
  set_message_latestid(session_id, session_type, -1, 0);
  return clean ? compact() : deleted;
}

bool Model::clear_message_by_timestamp(int64_t sent_time, bool) {
  if (!open_) return false;
  for (auto row = tables_.messages.begin(); row != tables_.messages.end();) {
    row = row->second.sent_time < sent_time ? tables_.messages.erase(row) : std::next(row);
  }
  return true;
}

bool Model::delete_message(const std::string& session_id, int32_t session_type) {
  if (!open_) return false;
  for (const MessageRow* row : messages(session_id, session_type)) {
    tables_.messages.erase(int64_t{row->id});
  }
  return true;
}

// ---- Message queries ----------------------------------------------------------------------------

bool Model::get_message_by_id(MessageResponse& msg) {
  return query_message(msg, false);
}

bool Model::get_message_by_uid(MessageResponse& msg) {
  return query_message(msg, true);
}

bool Model::get_history_message_by_object_name(const std::string& session_id,
                                               SessionType session_type,
                                               const std::vector<std::string>& object_name,
                                               int64_t message_id, int32_t count,
                                               std::vector<MessageResponse>& msg, bool desc) {
  int64_t anchor = 0;
  if (message_id != 0) {
    anchor = get_send_time(message_id);
  } else {
    get_maxtime(anchor, session_type, session_id, 2);
    anchor = sum64(anchor, 1);
  }
  std::string list;
  for (const std::string& name : object_name) {
    if (!name.empty()) append(list, "'" + name + "'");
  }
  const auto names = quoted_list(list);
  if (!open_ || !names) return false;

  std::vector<MessageRow*> rows = messages(session_id, session_type);
  if (desc) std::reverse(rows.begin(), rows.end());
  std::size_t page = 0;
  for (const MessageRow* row : rows) {
    if (desc ? row->sent_time >= anchor : row->sent_time <= anchor) continue;
    if (!names->empty() && names->count(row->object_name) == 0) continue;
    if (full(page, count)) break;
    msg.push_back(listed(*row, session_id, session_type));
    ++page;
  }
  return !msg.empty();
}

bool Model::get_history_message_by_time(const std::string& session_id, SessionType session_type,
                                        const std::string& object_name, int64_t search_time,
                                        int32_t count, std::vector<MessageResponse>& msg,
                                        bool desc) {
  return get_history_message_by_object_name(session_id, session_type, {object_name}, search_time,
                                            count, msg, desc);
}

bool Model::get_mention_message(const std::string& session_id, SessionType session_type,
                                std::vector<MessageResponse>& msg) {
  if (!open_) return false;
  std::vector<MessageRow*> rows = messages(session_id, session_type);
  std::reverse(rows.begin(), rows.end());
  std::size_t page = 0;
  for (const MessageRow* row : rows) {
    if (row->is_mention != 1 || row->direction != 2 || full(page, 10)) continue;
    MessageResponse mention = listed(*row, session_id, session_type);
    mention.is_receive_ = true;
    mention.sent_status_ = 0;
    msg.insert(msg.begin(), mention);
    ++page;
  }
  return !msg.empty();
}

bool Model::get_matched_message(const std::string& session_id, SessionType session_type,
                                int64_t sent_time, int32_t left_count, int32_t right_count,
                                std::vector<MessageResponse>& msg) {
  start_transaction();
  std::vector<MessageResponse> older;
  std::vector<MessageResponse> newer;
  const bool any =
      get_history_message_by_time(session_id, session_type, "", sent_time, left_count, older, true);
  const int64_t second = any ? older[0].sent_time_ : sum64(sent_time, -1);
  get_history_message_by_time(session_id, session_type, "", second, sum32(right_count, 1), newer,
                              false);
  commit_transaction();
  msg.insert(msg.end(), older.begin(), older.end());
  msg.insert(msg.begin(), newer.rbegin(), newer.rend());
  return !msg.empty();
}

void Model::get_max_time(int64_t& sent_time, SessionType session_type,
                         const std::string& session_id, int32_t type) {
  get_maxtime(sent_time, session_type, session_id, type);
}

int64_t Model::get_max_message_id(SessionType session_type, const std::string& session_id,
                                  int32_t type) {
  if (!open_) return -1;
  std::optional<int64_t> largest;
  for (const MessageRow* row : messages(session_id, session_type)) {
    if (in_type(*row, type)) largest = std::max(largest.value_or(row->id), row->id);
  }
  return largest.value_or(-1);
}

bool Model::query_message(MessageResponse& msg, bool by_uid) {
  const MessageRow* row = by_uid ? first_of(msg.server_uid_) : message(msg.msg_id_);
  if (!open_ || row == nullptr) return false;
  msg.session_id_ = row->session_id;
  msg.session_type_ = SessionType(low32(row->session_type));
  msg.content_ = row->content;
  msg.is_receive_ = low32(row->direction) != 0;
  msg.read_status_ = low32(row->read_status);
  msg.sent_time_ = row->sent_time;
  msg.object_name_ = row->object_name;
  msg.sent_status_ = low32(row->sent_status);
  msg.sender_ = row->sender;
  if (by_uid) {
    msg.msg_id_ = low32(row->id);
  } else {
    msg.server_uid_ = row->server_uid;
  }
  return true;
}

bool Model::get_message_by_id(int64_t msg_id, std::string& session_id, int32_t& session_type,
                              bool& is_unread, bool& is_mention, int64_t& sent_time) {
  const MessageRow* row = message(msg_id);
  if (!open_ || row == nullptr) return false;
  session_id = row->session_id;
  session_type = low32(row->session_type);
  is_unread = low32(row->read_status) == 0;
  is_mention = low32(row->is_mention) == 1;
  sent_time = row->sent_time;
  return true;
}

void Model::get_maxtime(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                        int32_t type) {
  const MessageRow* row = newest(session_id, session_type, type);
  if (open_ && row != nullptr) sent_time = row->sent_time;
}

// ---- Read state and send time -------------------------------------------------------------------

int64_t Model::get_send_time(int64_t msg_id) {
  const MessageRow* row = message(msg_id);
  return open_ && msg_id >= 1 && row != nullptr ? row->sent_time : 0;
}

bool Model::update_message_status(const std::string& session_id, int32_t session_type) {
  if (!open_) return false;
  int64_t read_time = 0;
  get_readtime(session_id, session_type, read_time);
  for (MessageRow* row : messages(session_id, session_type)) {
    if (row->sent_time <= read_time || row->direction != 1) continue;
    if (row->read_status == 0) row->read_status = 1;
    row->is_mention = 0;
  }
  return true;
}

void Model::get_readtime(const std::string& session_id, int32_t session_type, int64_t& read_time) {
  const SessionRow* row = session(session_id, session_type);
  if (open_ && row != nullptr) read_time = row->read_time;
}

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

  // Each run of equally pinned rows by itself.
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
  // Among the pinned without a time, the limit takes the time's place and the query fails.
  if (is_top && timestamp <= 0) return !session.empty();

  std::vector<SessionRow> rows;
  for (const SessionRow& row : tables_.sessions) {
    const bool older = row.session_time < timestamp;
    const bool wanted = is_top ? (older && row.is_top == 1) || row.is_top == 0
                               : timestamp <= 0 || (older && row.is_top == 0);
    if (wanted && kinds->count(row.session_type) > 0) rows.push_back(row);
  }
  std::reverse(rows.begin(), rows.end());  // of one place and kind the younger row comes first
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
