#include "tools/verify/row_checks.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "db/cv_db_records.h"
#include "tools/store/connection.h"
#include "tools/store/schema.h"
#include "tools/ui/error.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

bool is_code(int64_t value) {
  return value >= std::numeric_limits<int32_t>::min() &&
         value <= std::numeric_limits<int32_t>::max();
}

bool is_kind(int64_t type) {
  return type >= Corvan::CV_PRIVATE && type <= Corvan::CV_SYSTEM;
}

struct HashKey {
  std::size_t operator()(const ConversationKey& key) const {
    return std::hash<std::string>()(key.id) * 31 + std::hash<int64_t>()(key.type);
  }
};

class RowChecks {
 public:
  RowChecks(const Connection& connection, std::string name)
      : connection_(connection), name_(std::move(name)) {}

  RowFindings run() {
    read_sessions();
    read_messages();
    if (result_.complete) {
      find_in_sessions();
      find_orphans();
    }
    // A row for each conversation that has one of them.
    find_twice(kind::kServerUidTwice,
               "select session_id,session_type,server_uid,group_concat(cast(id as integer)) "
               "from t_message "
               "where server_uid collate binary in("
               "select server_uid from t_message where server_uid<>'' "
               "group by server_uid collate binary having count(*)>1) "
               "group by server_uid collate binary,session_id collate binary,session_type");
    find_twice(kind::kClientKeyTwice,
               "select session_id,session_type,client_uid||' of '||sender,"
               "group_concat(cast(id as integer)) "
               "from t_message where client_uid>0 "
               "group by session_id collate binary,session_type,client_uid,sender collate binary "
               "having count(*)>1");
    read_sync();
    for (auto& [key, finding] : gathered_) result_.findings.push_back(std::move(finding));
    return std::move(result_);
  }

 private:
  using Gathered = std::tuple<const Kind*, std::string, int64_t, std::string, std::string>;

  // False when the rows cannot all be read, which is a finding.
  template <typename Read>
  bool each_row(const std::string& table, const std::string& sql, const Read& read) {
    const int rc = connection_.each_row(sql, read);
    if (rc == SQLITE_DONE) return true;
    if (rc != SQLITE_CORRUPT && rc != SQLITE_NOTADB && rc != SQLITE_ERROR) {
      throw ToolError(name_ + ": " + connection_.error());
    }
    if (result_.complete) {
      Finding finding;
      finding.kind = &kind::kRowsUnread;
      finding.name = table;
      finding.stored = connection_.error();
      result_.findings.push_back(std::move(finding));
    }
    result_.complete = false;
    return false;
  }

  Finding& add(const Kind& kind, const ConversationKey& key, const std::string& column) {
    Finding finding;
    finding.kind = &kind;
    finding.conversation = key;
    finding.name = column;
    result_.findings.push_back(std::move(finding));
    return result_.findings.back();
  }

  // One finding for all messages of a conversation with one value in a column.
  void gather(const Kind& kind, const ConversationKey& key, int64_t id, const std::string& column,
              const Json& stored) {
    Finding& finding = gathered_[{&kind, key.id, key.type, column, stored.dump()}];
    finding.kind = &kind;
    finding.conversation = key;
    finding.messages.push_back(id);
    finding.name = column;
    finding.stored = stored;
  }

  // One finding for all messages of a conversation, whatever their times, with the span of these.
  void gather_time(const Kind& kind, const ConversationKey& key, int64_t id, int64_t time) {
    Finding& finding = gathered_[{&kind, key.id, key.type, "sent_time", ""}];
    const bool is_first = finding.kind == nullptr;
    finding.kind = &kind;
    finding.conversation = key;
    finding.messages.push_back(id);
    finding.name = "sent_time";
    if (is_first) {
      finding.stored = time;
    } else if (finding.stored.is_object()) {
      finding.stored["least"] = std::min(finding.stored["least"].get<int64_t>(), time);
      finding.stored["most"] = std::max(finding.stored["most"].get<int64_t>(), time);
    } else if (const int64_t other = finding.stored; other != time) {
      finding.stored = {{"least", std::min(other, time)}, {"most", std::max(other, time)}};
    }
  }

  static const char* type_name(int type) {
    switch (type) {
      case SQLITE_INTEGER:
        return "integer";
      case SQLITE_FLOAT:
        return "real";
      case SQLITE_TEXT:
        return "text";
      case SQLITE_BLOB:
        return "blob";
      default:
        return "null";
    }
  }

  static const Kind& kind_of_type(const std::string& of_text_column) {
    return of_text_column == "null" ? kind::kTextNull : kind::kColumnType;
  }

  static const Kind& kind_of_number(const std::string& type) {
    return type == "null" ? kind::kIntegerNull : kind::kColumnType;
  }

  static bool is_integer(sqlite3_stmt* row, int column) {
    return sqlite3_column_type(row, column) == SQLITE_INTEGER;
  }

  // Whether the columns from `first` on, of these names, hold integers. `report` receives the name
  // and the type of each other one. The row would name them as the file writes them.
  template <std::size_t Count, typename Report>
  static bool are_integers(sqlite3_stmt* row, int first,
                           const std::array<const char*, Count>& names, const Report& report) {
    bool good = true;
    for (std::size_t i = 0; i < Count; ++i) {
      const int place = first + static_cast<int>(i);
      if (is_integer(row, place)) continue;
      report(names.at(i), type_name(sqlite3_column_type(row, place)));
      good = false;
    }
    return good;
  }

  void read_sessions() {
    const int rc = find_row_id(connection_, "t_session", result_.session_row_id);
    if (rc != SQLITE_DONE) result_.session_row_id.clear();  // the rows tell the failure
    const std::string row_id = result_.session_row_id.empty() ? "0" : result_.session_row_id;
    each_row(
        "t_session",
        "select " + row_id +
            ",session_id,session_type,is_top,session_time,unread_count,mention_count,"
            "silence,latest_id,read_time,receipt_time,draft<>'',typeof(session_id),typeof(title),"
            "typeof(draft) from t_session not indexed",
        [this](sqlite3_stmt* row) { take_session(row); });
  }

  void take_session(sqlite3_stmt* row) {
    SessionRow session;
    session.rowid = sqlite3_column_int64(row, 0);
    session.key = {text_at(row, 1), sqlite3_column_int64(row, 2)};
    session.session_time = sqlite3_column_int64(row, 4);
    session.unread_count = sqlite3_column_int64(row, 5);
    session.mention_count = sqlite3_column_int64(row, 6);
    session.latest_id = sqlite3_column_int64(row, 8);
    session.read_time = sqlite3_column_int64(row, 9);
    session.receipt_time = sqlite3_column_int64(row, 10);
    session.has_draft = sqlite3_column_int(row, 11) != 0;

    static constexpr std::array<const char*, 9> kNumbers = {
        "session_type", "is_top",    "session_time", "unread_count", "mention_count",
        "silence",      "latest_id", "read_time",    "receipt_time"};
    are_integers(row, 2, kNumbers, [&](const char* column, const char* type) {
      add(kind_of_number(type), session.key, column).stored = type;
      session.no_numbers.insert(column);
    });
    static constexpr std::array<const char*, 3> kTexts = {"session_id", "title", "draft"};
    session.has_key = session.is_number("session_type");
    for (int i = 0; i < 3; ++i) {
      const std::string type = text_at(row, 12 + i);
      if (type == "text") continue;
      const char* const column = kTexts.at(static_cast<std::size_t>(i));
      add(kind_of_type(type), session.key, column).stored = type;
      if (i == 0) session.has_key = false;
    }
    check_codes(session, sqlite3_column_int64(row, 3), sqlite3_column_int64(row, 7));
    if (session.has_key) {
      Conversation& conversation = conversations_[session.key];
      conversation.rows.push_back(result_.sessions.size());
      conversation.read_time = session.read_time;
    }
    if (session.latest_id > 0 && session.is_number("latest_id")) {
      named_[session.latest_id].push_back(result_.sessions.size());
    }
    result_.sessions.push_back(std::move(session));
  }

  void check_codes(const SessionRow& session, int64_t is_top, int64_t silence) {
    if (session.is_number("session_type") && !is_kind(session.key.type)) {
      const bool can_be = is_code(session.key.type);
      add(can_be ? kind::kSessionType : kind::kCode, session.key, "session_type").stored =
          session.key.type;
    }
    if (session.is_number("is_top") && is_top != 0 && is_top != 1) {
      add(kind::kCode, session.key, "is_top").stored = is_top;
    }
    if (session.is_number("silence") && !is_code(silence)) {
      add(kind::kCode, session.key, "silence").stored = silence;
    }
  }

  void read_messages() {
    Progress progress("messages");
    each_row("t_message",
             "select id,session_id,session_type,direction,sent_status,read_status,is_mention,"
             "sent_time,client_uid,typeof(session_id),typeof(object_name),typeof(content),"
             "typeof(sender),typeof(server_uid) from t_message not indexed order by id",
             [&](sqlite3_stmt* row) {
               take_message(row);
               if (++result_.messages % 4096 == 0)
                 progress.show(static_cast<std::uint64_t>(result_.messages));
             });
  }

  void take_message(sqlite3_stmt* row) {
    // Messages of one conversation often follow one another.
    const char* const id = reinterpret_cast<const char*>(sqlite3_column_text(row, 1));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, 1));
    const int64_t type = sqlite3_column_int64(row, 2);
    const std::string_view id_text = id == nullptr ? "" : std::string_view(id, size);
    if (current_ == nullptr || current_->first.type != type || current_->first.id != id_text) {
      current_ = &*conversations_.try_emplace({std::string(id_text), type}).first;
    }
    const ConversationKey& key = current_->first;

    Message m;
    m.id = sqlite3_column_int64(row, 0);
    m.direction = sqlite3_column_int64(row, 3);
    m.sent_status = sqlite3_column_int64(row, 4);
    m.read_status = sqlite3_column_int64(row, 5);
    m.is_mention = sqlite3_column_int64(row, 6);
    m.sent_time = sqlite3_column_int64(row, 7);
    result_.largest_id = std::max(result_.largest_id, m.id);

    static constexpr std::array<const char*, 7> kNumbers = {
        "session_type", "direction", "sent_status", "read_status",
        "is_mention",   "sent_time", "client_uid"};
    are_integers(row, 2, kNumbers, [&](const char* column, const char* bad) {
      gather(kind_of_number(bad), key, m.id, column, bad);
    });
    static constexpr std::array<const char*, 5> kTexts = {"session_id", "object_name", "content",
                                                          "sender", "server_uid"};
    bool has_key = is_integer(row, 2);
    for (int i = 0; i < 5; ++i) {
      const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(row, 9 + i));
      if (std::string_view(text) == "text") continue;
      gather(kind_of_type(text), key, m.id, kTexts.at(static_cast<std::size_t>(i)), text);
      if (i == 0) has_key = false;
    }
    check_codes(m, key, row);
    settle_named(m, key, has_key);
    if (has_key) take_values(m, row);
  }

  // Tells the rows of t_session that name the message as their latest one.
  void settle_named(const Message& m, const ConversationKey& key, bool has_key) {
    const auto named = named_.find(m.id);
    if (named == named_.end()) return;
    for (const std::size_t place : named->second) {
      SessionRow& session = result_.sessions[place];
      const bool is_its_own = has_key && session.has_key && session.key == key;
      session.latest = is_its_own ? LatestState::kGood : LatestState::kForeign;
      session.latest_time = m.sent_time;
      session.latest_is_own = m.direction == 0;
    }
  }

  // Adds the message to its conversation as far as its values are of their columns' types.
  void take_values(const Message& m, sqlite3_stmt* row) {
    Conversation& conversation = current_->second;
    const bool has_time = is_integer(row, 7);
    const bool has_direction = is_integer(row, 3);
    if (has_time && has_direction && is_integer(row, 5) && is_integer(row, 6)) {
      count_message(conversation, m, current_->first.type == Corvan::CV_CHATROOM);
    } else {
      conversation.has_counted = false;
      conversation.has_times = conversation.has_times && has_time;
      pass_message(conversation, m.id, m.sent_time);
    }
    if (!has_time || !has_direction) return;
    if (m.direction == 0) {
      newest_own_ = std::max(newest_own_, m.sent_time);
    } else {
      newest_received_ = std::max(newest_received_, m.sent_time);
    }
  }

  // `row` tells which of the values are of their columns' types.
  void check_codes(const Message& m, const ConversationKey& key, sqlite3_stmt* row) {
    if (m.id < 1) gather(kind::kMessageId, key, m.id, "id", m.id);
    if (is_integer(row, 2) && !is_kind(key.type)) {
      gather(is_code(key.type) ? kind::kSessionType : kind::kCode, key, m.id, "session_type",
             key.type);
    }
    if (is_integer(row, 3)) check_direction(m, key, is_integer(row, 5));
    if (is_integer(row, 4)) check_sent_status(m, key);
    if (is_integer(row, 5) && !is_code(m.read_status)) {
      gather(kind::kCode, key, m.id, "read_status", m.read_status);
    }
    if (is_integer(row, 6) && m.is_mention != 0 && m.is_mention != 1) {
      gather(kind::kCode, key, m.id, "is_mention", m.is_mention);
    }
    const Kind* const wrong = is_integer(row, 7) ? wrong_time(m.sent_time, now_) : nullptr;
    if (wrong != nullptr) gather_time(*wrong, key, m.id, m.sent_time);
  }

  void check_direction(const Message& m, const ConversationKey& key, bool has_read_status) {
    if (m.direction == 2) {
      gather(kind::kDirectionCopied, key, m.id, "direction", 2);
    } else if (m.direction != 0 && m.direction != 1) {
      gather(kind::kCode, key, m.id, "direction", m.direction);
    } else if (m.direction == 0 && has_read_status && m.read_status == 0) {
      gather(kind::kOwnUnread, key, m.id, "read_status", 0);
    }
  }

  void check_sent_status(const Message& m, const ConversationKey& key) {
    if (m.sent_status < 0 || m.sent_status > 3) {
      gather(is_code(m.sent_status) ? kind::kSentStatus : kind::kCode, key, m.id, "sent_status",
             m.sent_status);
    } else if (m.sent_status == 1 || m.sent_status == 2) {
      gather(m.sent_status == 1 ? kind::kSending : kind::kFailed, key, m.id, "sent_status",
             m.sent_status);
    }
  }

  void find_in_sessions() {
    static const Conversation none;
    for (std::size_t place = 0; place < result_.sessions.size(); ++place) {
      SessionRow& session = result_.sessions[place];
      const auto found = conversations_.find(session.key);
      // Without a key it is no conversation's row.
      const bool has_one = session.has_key && found != conversations_.end();
      const Conversation& conversation = has_one ? found->second : none;
      if (conversation.rows.size() > 1) {
        if (conversation.rows.front() == place) {
          add(kind::kRowTwice, session.key, "t_session").stored = conversation.rows.size();
        }
        session.has_key = false;
      }
      judge(session, conversation, result_.findings);
      if (session.has_key && conversation.messages == 0) {
        add(kind::kSessionEmpty, session.key, "t_session");
      }
    }
  }

  // Conversations that have messages and no row. Their messages are read once more, all together:
  // for each of them alone it takes an index that may be missing.
  void find_orphans() {
    const auto is_orphan = [](const auto& one) {
      return one.second.rows.empty() && one.second.messages > 0;
    };
    if (std::none_of(conversations_.begin(), conversations_.end(), is_orphan)) return;
    const StatementProgress progress(connection_.handle(), "million steps of naming messages");
    each_row("t_message",
             "select session_id,session_type,id from t_message not indexed "
             "where typeof(session_id)='text' and typeof(session_type)='integer' order by id",
             [&](sqlite3_stmt* row) {
               const ConversationKey key = {text_at(row, 0), sqlite3_column_int64(row, 1)};
               const auto found = conversations_.find(key);
               if (found == conversations_.end() || !is_orphan(*found)) return;
               gather(kind::kSessionMissing, key, sqlite3_column_int64(row, 2), "t_session",
                      nullptr);
             });
  }

  // The statement gives a conversation, a value and the ids of its messages.
  void find_twice(const Kind& kind, const std::string& sql) {
    const StatementProgress progress(connection_.handle(),
                                     "million steps of looking for duplicates");
    each_row("t_message", sql, [&](sqlite3_stmt* row) {
      Finding finding;
      finding.kind = &kind;
      finding.conversation = {text_at(row, 0), sqlite3_column_int64(row, 1)};
      finding.name = &kind == &kind::kServerUidTwice ? "server_uid" : "client_uid";
      finding.stored = text_at(row, 2);
      finding.messages = ids_of(text_at(row, 3));
      result_.findings.push_back(std::move(finding));
    });
  }

  static std::vector<int64_t> ids_of(const std::string& list) {
    std::vector<int64_t> ids;
    for (std::size_t at = 0; at < list.size(); at = list.find(',', at) + 1) {
      ids.push_back(std::stoll(list.substr(at)));
      if (list.find(',', at) == std::string::npos) break;
    }
    std::sort(ids.begin(), ids.end());
    return ids;
  }

  void read_sync() {
    std::map<std::string, int> users;
    each_row("t_sync", "select user_id,receive_time,sent_time from t_sync not indexed",
             [&](sqlite3_stmt* row) {
               // Before the text is read: it makes one of a blob.
               const std::string type = type_name(sqlite3_column_type(row, 0));
               const std::string user = text_at(row, 0);
               if (type != "text") {
                 add_sync(kind_of_type(type), user, "user_id").stored = type;
               } else if (++users[user] == 2) {
                 add_sync(kind::kRowTwice, user, "user_id");
               }
               static constexpr std::array<const char*, 2> kMarks = {"receive_time", "sent_time"};
               const bool good =
                   are_integers(row, 1, kMarks, [&](const char* column, const char* bad) {
                     add_sync(kind_of_number(bad), user, column).stored = bad;
                   });
               if (!good) return;
               check_mark(user, "receive_time", sqlite3_column_int64(row, 1), newest_received_);
               check_mark(user, "sent_time", sqlite3_column_int64(row, 2), newest_own_);
             });
  }

  Finding& add_sync(const Kind& kind, const std::string& user, const std::string& column) {
    Finding finding;
    finding.kind = &kind;
    finding.name = "t_sync." + column + " of " + user;
    result_.findings.push_back(std::move(finding));
    return result_.findings.back();
  }

  void check_mark(const std::string& user, const char* column, int64_t mark, int64_t newest) {
    const Kind* wrong = nullptr;
    if (mark < 0) wrong = &kind::kSyncNegative;
    if (mark > 0) wrong = wrong_time(mark, now_);  // 0: was never set
    if (wrong != nullptr) {
      add_sync(*wrong, user, column).stored = mark;
    } else if (result_.complete && mark < newest) {
      Finding& finding = add_sync(kind::kSyncBehind, user, column);
      finding.stored = mark;
      finding.derived = newest;
    }
  }

  const Connection& connection_;
  const std::string name_;
  const int64_t now_ = time_now();
  RowFindings result_;
  std::unordered_map<ConversationKey, Conversation, HashKey> conversations_;
  std::pair<const ConversationKey, Conversation>* current_ = nullptr;  // of the last message
  std::unordered_map<int64_t, std::vector<std::size_t>> named_;  // rows of t_session by latest_id
  std::map<Gathered, Finding> gathered_;
  int64_t newest_own_ = 0;
  int64_t newest_received_ = 0;
};

}  // namespace

RowFindings look_at_rows(const Connection& connection, const std::string& name) {
  return RowChecks(connection, name).run();
}

}  // namespace corvan_tool
