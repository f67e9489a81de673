#include "bench/floor/floor.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "base/timestamp.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

// Joins numbers with commas, for an SQL list.
class NumberList {
 public:
  explicit NumberList(std::size_t numbers) { text_.reserve(numbers * 8); }
  void add(int64_t number) {
    std::array<char, 20> digits;
    char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    if (!text_.empty()) text_ += ',';
    text_.append(digits.data(), end);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

// Reserves memory for a page. Unlimited and very large pages grow as needed.
template <typename Record>
void reserve_page(std::vector<Record>& records, int32_t limit) {
  if (!records.empty() || limit <= 0) return;
  records.reserve(static_cast<std::size_t>(std::min(limit, 64)));
}

}  // namespace

FloorConnection::FloorConnection(const std::string& file) {
  sqlite3_open_v2(file.c_str(), &db_,
                  SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  for (const char* sql :
       {"pragma journal_mode=WAL", "pragma wal_autocheckpoint=5000", "pragma temp_store=2",
        "pragma secure_delete=ON", "update t_message set sent_status=2 where sent_status=1"}) {
    sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
  }
}

template <typename Statements>
Floor<Statements>::Floor(const std::string& file, std::string user_id)
    : connection_(file),
      user_id_(std::move(user_id)),
      fixed_(connection_.get()),
      pasted_(connection_.get()) {}

template <typename Statements>
void Floor<Statements>::run(const char* sql) {
  Query(fixed_, sql).step();
}

// ---- Saving -------------------------------------------------------------------------------------

template <typename Statements>
int64_t Floor<Statements>::save_message(const std::string& session_id, SessionType session_type,
                                        const std::string& object_name, const std::string& sender,
                                        const std::string& content, bool is_receive,
                                        int32_t sent_status, int32_t /*read_status*/,
                                        bool is_mention, int64_t sent_time, int64_t client_uid,
                                        const std::string& server_uid, bool history,
                                        bool insert_only, bool is_count) {
  const int64_t now = Corvan::Timestamp();
  const bool own_time = insert_only && sent_time > 0;
  if (sent_time < 1) sent_time = now;
  const int32_t read_status = is_receive && session_type != Corvan::CV_CHATROOM ? 0 : 1;

  if (!server_uid.empty()) {
    Query query(fixed_, "select 1 from t_message where server_uid=? limit 1");
    query.bind(1, server_uid);
    if (query.row()) return -1;
  }
  if (!insert_only && !history && client_uid > 0) {
    Query query(fixed_,
                "select id,server_uid from t_message where session_id=? and session_type=? "
                "and client_uid=? and sender=? limit 1");
    query.bind(1, session_id);
    query.bind(2, session_type);
    query.bind(3, client_uid);
    query.bind(4, is_receive ? sender : user_id_);
    if (query.row()) {
      if (*query.text(1) != '\0') return -1;
      const int64_t id = query.get_int(0);
      Query update(fixed_,
                   "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?");
      update.bind(1, server_uid);
      update.bind(2, sent_time);
      update.bind(3, id);
      update.step();
      return id;
    }
  }
  {
    Query insert(fixed_,
                 "insert into t_message(session_id,session_type,object_name,content,sender,"
                 "direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) "
                 "values(?,?,?,?,?,?,?,?,?,?,?,?)");
    insert.bind(1, session_id);
    insert.bind(2, session_type);
    insert.bind(3, object_name);
    insert.bind(4, content);
    insert.bind(5, sender);
    insert.bind(6, is_receive);
    insert.bind(7, sent_status);
    insert.bind(8, read_status);
    insert.bind(9, is_mention);
    insert.bind(10, sent_time);
    insert.bind(11, client_uid);
    insert.bind(12, server_uid);
    insert.step();
  }
  const int64_t msg_id = sqlite3_last_insert_rowid(connection_.get());

  bool known = false;
  {
    Query query(fixed_, "select 1 from t_session where session_id=? and session_type=? limit 1");
    query.bind(1, session_id);
    query.bind(2, session_type);
    known = query.row();
  }
  if (known) {
    move_session(session_id, session_type, sent_time, object_name, msg_id, is_count ? 1 : 0,
                 is_mention ? 1 : 0, history, insert_only, own_time);
  } else {
    Query insert(fixed_,
                 "insert into t_session(session_id,session_type,session_time,title,silence,"
                 "unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)");
    insert.bind(1, session_id);
    insert.bind(2, session_type);
    insert.bind(3, sent_time);
    insert.bind(4, std::string());
    insert.bind(5, 0);
    insert.bind(6, is_count ? 1 : 0);
    insert.bind(7, is_mention ? 1 : 0);
    insert.bind(8, msg_id);
    insert.step();
  }
  return msg_id;
}

template <typename Statements>
void Floor<Statements>::move_session(const std::string& session_id, SessionType session_type,
                                     int64_t sent_time, const std::string& object_name,
                                     int64_t msg_id, int32_t unread, int32_t mention, bool history,
                                     bool insert_only, bool own_time) {
  int64_t session_time = 0;
  int64_t latest_id = -1;
  {
    Query query(fixed_,
                "select session_time,latest_id,unread_count,mention_count from t_session "
                "where session_id=? and session_type=?");
    query.bind(1, session_id);
    query.bind(2, session_type);
    if (query.row()) {
      session_time = query.get_int64(0);
      latest_id = query.get_int(1);
      unread += query.get_int(2);
      mention += query.get_int(3);
    }
  }
  if (sent_time <= session_time) {
    const bool has_latest = latest_id > 0;
    if (history && has_latest) return;
    if ((own_time || object_name == "CV:QbNtf") && has_latest) msg_id = latest_id;
    if (insert_only) sent_time = session_time;
  }
  Query update(fixed_,
               "update t_session set session_time=?,unread_count=?,mention_count=?,latest_id=? "
               "where session_id=? and session_type=?");
  update.bind(1, sent_time);
  update.bind(2, unread);
  update.bind(3, mention);
  update.bind(4, msg_id);
  update.bind(5, session_id);
  update.bind(6, session_type);
  update.step();
}

template <typename Statements>
bool Floor<Statements>::save_message(
    const std::vector<std::unique_ptr<MessageResponse>>& messages) {
  Query insert(fixed_,
               "insert into t_message(session_id,session_type,object_name,sender,content,"
               "direction,read_status,sent_status,sent_time,client_uid,server_uid) "
               "values(?,?,?,?,?,?,?,?,?,?,?)");
  for (const std::unique_ptr<MessageResponse>& message : messages) {
    MessageResponse& m = *message;
    if (m.msg_id_ >= 0) continue;
    if (!m.is_store_) {
      m.msg_id_ = 0;
      continue;
    }
    insert.reset();
    insert.bind(1, m.session_id_);
    insert.bind(2, m.session_type_);
    insert.bind(3, m.object_name_);
    insert.bind(4, m.sender_);
    insert.bind(5, m.content_);
    insert.bind(6, m.is_receive_);
    insert.bind(7, m.read_status_);
    insert.bind(8, m.sent_status_);
    insert.bind(9, m.sent_time_);
    insert.bind(10, m.client_uid_);
    insert.bind(11, m.server_uid_);
    insert.step();
    m.msg_id_ = sqlite3_last_insert_rowid(connection_.get());
  }
  return true;
}

// ---- Message state and deletion -----------------------------------------------------------------

template <typename Statements>
void Floor<Statements>::lower_counters(const std::string& session_id, int32_t session_type,
                                       int32_t unread, int32_t mention) {
  std::string sql = "update t_session set unread_count=unread_count";
  sql += unread >= 1 ? "-" + std::to_string(unread) : "+1";
  if (mention > 0) sql += ",mention_count=mention_count-" + std::to_string(mention);
  sql += " where session_id=? and session_type=?";
  Query update(pasted_, sql);
  update.bind(1, session_id);
  update.bind(2, session_type);
  update.step();
}

template <typename Statements>
bool Floor<Statements>::set_read_status(int64_t msg_id, int32_t read_status) {
  run("begin transaction");
  std::string session_id;
  int32_t session_type = 0;
  bool is_unread = false;
  bool is_mention = false;
  bool found = false;
  {
    Query query(fixed_,
                "select session_id,session_type,read_status,is_mention,sent_time from t_message "
                "where id=?");
    query.bind(1, msg_id);
    found = query.row();
    if (found) {
      session_id = query.text(0);
      session_type = query.get_int(1);
      is_unread = query.get_int(2) == 0;
      is_mention = query.get_int(3) == 1;
    }
  }
  if (found) {
    {
      Query update(fixed_, "update t_message set read_status=?,is_mention=0 where id=?");
      update.bind(1, read_status);
      update.bind(2, msg_id);
      update.step();
    }
    if (read_status >= 1 && is_unread) {
      lower_counters(session_id, session_type, 1, is_mention ? 1 : 0);
    } else if (read_status == 0 && !is_unread) {
      lower_counters(session_id, session_type, -1, is_mention ? 1 : 0);
    }
  }
  run("commit transaction");
  return found;
}

template <typename Statements>
void Floor<Statements>::point_at_newest(const std::string& session_id, int32_t session_type) {
  int64_t msg_id = -1;
  int64_t sent_time = 0;
  {
    Query query(fixed_,
                "select id,sent_time from t_message where session_id=? and session_type=? "
                "order by sent_time desc limit 1");
    query.bind(1, session_id);
    query.bind(2, session_type);
    if (query.row()) {
      msg_id = query.get_int(0);
      sent_time = query.get_int64(1);
    }
  }
  if (msg_id > 0) {
    Query update(fixed_,
                 "update t_session set latest_id=?,session_time=? "
                 "where session_id=? and session_type=?");
    update.bind(1, msg_id);
    update.bind(2, sent_time);
    update.bind(3, session_id);
    update.bind(4, session_type);
    update.step();
  } else {
    Query update(fixed_, "update t_session set latest_id=? where session_id=? and session_type=?");
    update.bind(1, msg_id);
    update.bind(2, session_id);
    update.bind(3, session_type);
    update.step();
  }
}

template <typename Statements>
bool Floor<Statements>::delete_message(const std::vector<int64_t>& ids) {
  struct Conversation {
    std::string session_id;
    int32_t session_type;
    int32_t unread;
    int32_t mention;
  };
  NumberList list(ids.size());
  for (const int64_t id : ids) {
    if (id >= 1) list.add(id);
  }

  run("begin transaction");
  std::vector<Conversation> counted;
  {
    Query query(pasted_,
                "select session_id,session_type,read_status,is_mention,sent_time from t_message "
                "where id in(" +
                    list.text() + ")");
    while (query.row()) {
      const char* session_id = query.text(0);
      const int32_t session_type = query.get_int(1);
      const int32_t unread = query.get_int(2) == 0 ? 1 : 0;
      const int32_t mention = query.get_int(3) == 1 ? 1 : 0;
      bool last_took_it = false;
      for (Conversation& each : counted) {
        last_took_it = each.session_type == session_type && each.session_id == session_id;
        if (!last_took_it) continue;
        each.unread += unread;
        each.mention += mention;
      }
      if (!last_took_it && unread + mention > 0) {
        counted.push_back({session_id, session_type, unread, mention});
      }
    }
  }
  std::vector<std::pair<std::string, int32_t>> without_newest;
  {
    Query query(pasted_, "select session_id,session_type from t_session where latest_id in(" +
                             list.text() + ")");
    while (query.row()) without_newest.emplace_back(query.text(0), query.get_int(1));
  }
  Query(pasted_, "delete from t_message where id in(" + list.text() + ")").step();
  for (const Conversation& each : counted) {
    if (each.unread > 0) {
      lower_counters(each.session_id, each.session_type, each.unread, each.mention);
    }
  }
  for (const auto& [session_id, session_type] : without_newest) {
    point_at_newest(session_id, session_type);
  }
  run("commit transaction");
  return true;
}

// ---- Pages --------------------------------------------------------------------------------------

template <typename Statements>
bool Floor<Statements>::get_history_message_by_object_name(
    const std::string& session_id, SessionType session_type,
    const std::vector<std::string>& object_name, int64_t message_id, int32_t count,
    std::vector<MessageResponse>& messages, bool desc) {
  int64_t search_time = 0;
  if (message_id > 0) {
    Query query(fixed_, "select sent_time from t_message where id=?");
    query.bind(1, message_id);
    if (query.row()) search_time = query.get_int64(0);
  } else if (message_id == 0) {
    Query query(fixed_,
                "select sent_time from t_message where session_id=? and session_type=? "
                "order by sent_time desc limit 1");
    query.bind(1, session_id);
    query.bind(2, session_type);
    if (query.row()) search_time = query.get_int64(0);
    ++search_time;
  }

  std::string names;
  for (const std::string& name : object_name) {
    if (!name.empty()) names += (names.empty() ? "'" : ",'") + name + "'";
  }
  std::string sql;
  sql.reserve(256);
  sql =
      "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid "
      "from t_message where session_id=? and session_type=? and sent_time";
  sql += desc ? "<?" : ">?";
  if (!names.empty()) sql += " and object_name in(" + names + ")";
  sql += desc ? " order by sent_time desc limit ?" : " order by sent_time asc limit ?";

  Query query(fixed_, sql);
  query.bind(1, session_id);
  query.bind(2, session_type);
  query.bind(3, search_time);
  query.bind(4, count);
  reserve_page(messages, count);
  while (query.row()) {
    MessageResponse& m = messages.emplace_back();
    m.msg_id_ = query.get_int(0);
    m.content_ = query.text(1);
    m.is_receive_ = query.get_int(2) != 0;
    m.read_status_ = query.get_int(3);
    m.sent_time_ = query.get_int64(4);
    m.object_name_ = query.text(5);
    m.sent_status_ = query.get_int(6);
    m.sender_ = query.text(7);
    m.server_uid_ = query.text(8);
    m.session_id_ = session_id;
    m.session_type_ = session_type;
  }
  return !messages.empty();
}

template <typename Statements>
bool Floor<Statements>::get_session_list_by_page(const std::vector<SessionType>& kinds,
                                                 int64_t sent_time, int32_t limit,
                                                 std::vector<SessionInfo>& sessions) {
  if (sent_time == 0) page_ended_pinned_ = false;
  NumberList kind_list(kinds.size());
  for (const SessionType kind : kinds) {
    if (kind >= Corvan::CV_PRIVATE && kind <= Corvan::CV_SYSTEM) kind_list.add(kind);
  }

  const auto first = static_cast<std::ptrdiff_t>(sessions.size());
  reserve_page(sessions, limit);
  {
    std::string sql;
    sql.reserve(320);
    sql =
        "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
        "silence,latest_id from t_session where session_type in(";
    sql += kind_list.text();
    sql += ")";
    if (page_ended_pinned_) {
      sql += " and ((session_time<? and is_top=1) or is_top=0)";
    } else if (sent_time > 0) {
      sql += " and session_time<? and is_top=0";
    }
    sql += " order by is_top desc,session_time desc limit ?";
    Query query(fixed_, sql);
    int parameter = 0;
    if (sent_time > 0) query.bind(++parameter, sent_time);
    query.bind(++parameter, limit);
    while (query.row()) {
      SessionInfo& s = sessions.emplace_back();
      s.session_id_ = query.text(0);
      s.session_type_ = query.get_int(1);
      s.title_ = query.text(2);
      s.draft_ = query.text(3);
      s.is_top_ = query.get_int(4);
      s.session_time = query.get_int64(5);
      s.unread_count_ = query.get_int(6);
      s.mention_count_ = query.get_int(7);
      s.silence_ = query.get_int(8);
      s.message_.msg_id_ = query.get_int(9);
      s.message_.session_id_ = s.session_id_;
      s.message_.session_type_ = static_cast<SessionType>(s.session_type_);
    }
  }
  const auto page = sessions.begin() + first;
  if (page == sessions.end()) return false;

  NumberList ids(static_cast<std::size_t>(sessions.end() - page));
  for (auto s = page; s != sessions.end(); ++s) ids.add(s->message_.msg_id_);

  // The key of t_session ensures at most one row per message; messages are ordered by id.
  std::vector<SessionInfo*> by_id;
  by_id.reserve(static_cast<std::size_t>(sessions.end() - page));
  for (auto s = page; s != sessions.end(); ++s) by_id.push_back(&*s);
  std::sort(by_id.begin(), by_id.end(), [](const SessionInfo* a, const SessionInfo* b) {
    return a->message_.msg_id_ < b->message_.msg_id_;
  });
  {
    std::string sql;
    sql.reserve(160 + ids.text().size());
    sql =
        "select session_id,session_type,content,object_name,sender,direction,read_status,"
        "sent_status,sent_time,server_uid from t_message where id in(";
    sql += ids.text();
    sql += ")";
    Query query(pasted_, sql);
    auto next = by_id.begin();
    while (query.row()) {
      const char* session_id = query.text(0);
      const int32_t session_type = query.get_int(1);
      const auto is_its_row = [session_id, session_type](const SessionInfo* s) {
        return s->session_type_ == session_type && s->session_id_ == session_id;
      };
      auto row = std::find_if(next, by_id.end(), is_its_row);
      if (row == by_id.end()) row = std::find_if(by_id.begin(), next, is_its_row);
      if (row == by_id.end() || !is_its_row(*row)) continue;
      SessionInfo& s = **row;
      s.message_.content_ = query.text(2);
      s.message_.object_name_ = query.text(3);
      s.message_.sender_ = query.text(4);
      s.message_.is_receive_ = query.get_int(5) != 0;
      s.message_.read_status_ = query.get_int(6);
      s.message_.sent_status_ = query.get_int(7);
      if (s.draft_.empty()) s.session_time = query.get_int64(8);
      s.message_.server_uid_ = query.text(9);
      if (next != by_id.end()) ++next;
    }
  }

  const auto before = [](const SessionInfo& a, const SessionInfo& b) {
    return a.is_top_ != b.is_top_ ? a.is_top_ > b.is_top_ : a.session_time > b.session_time;
  };
  if (!std::is_sorted(page, sessions.end(), before)) {
    std::stable_sort(page, sessions.end(), before);
  }
  page_ended_pinned_ = sessions.back().is_top_ != 0;
  return true;
}

template <typename Statements>
bool Floor<Statements>::get_unread_count(const std::string& session_id, SessionType session_type,
                                         int32_t& unread) {
  Query query(fixed_, "select unread_count from t_session where session_id=? and session_type=?");
  query.bind(1, session_id);
  query.bind(2, session_type);
  if (query.row()) unread = query.get_int(0);
  return true;
}

template class Floor<PreparedEachTime>;
template class Floor<PreparedOnce>;

}  // namespace corvan_bench
