#include "tools/verify/session_checks.h"

#include <fmt/format.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tools/store/schema.h"
#include "tools/verify/values.h"

namespace corvan_tool {

namespace {

// The columns of kSessionQuery.
enum SessionColumn {
  kRowId,
  kSessionId,
  kSessionType,
  kIsTop,
  kSessionTime,
  kUnreadCount,
  kMentionCount,
  kSilence,
  kLatestId,
  kReadTime,
  kReceiptTime,
  kHasDraft,
  kFirstTextType
};
constexpr const char* kSessionQuery =
    "select {},session_id,session_type,is_top,session_time,unread_count,mention_count,"
    "silence,latest_id,read_time,receipt_time,draft<>'',typeof(session_id),typeof(title),"
    "typeof(draft) from t_session not indexed";
constexpr std::array<const char*, 9> kSessionNumbers = {
    "session_type", "is_top",    "session_time", "unread_count", "mention_count",
    "silence",      "latest_id", "read_time",    "receipt_time"};
constexpr std::array<const char*, 3> kSessionTexts = {"session_id", "title", "draft"};

SessionRow session_at(const Row& row) {
  SessionRow session;
  session.rowid = row.int64(kRowId);
  session.key = {row.text(kSessionId), row.int64(kSessionType)};
  session.has_draft = row.int32(kHasDraft) != 0;
  session.session_time = row.int64(kSessionTime);
  session.unread_count = row.int64(kUnreadCount);
  session.mention_count = row.int64(kMentionCount);
  session.latest_id = row.int64(kLatestId);
  session.read_time = row.int64(kReadTime);
  session.receipt_time = row.int64(kReceiptTime);
  return session;
}

void check_types(const Row& row, SessionRow& session, Findings& findings) {
  check_integers(row, kSessionType, kSessionNumbers, [&](const char* column, const char* type) {
    findings.add(number_type_rule(type), session.key, column).stored = type;
    session.not_numbers.insert(column);
  });
  session.has_key = session.is_number("session_type");
  check_texts(row, kFirstTextType, kSessionTexts,
              [&](const std::string& column, const std::string& type) {
                findings.add(text_type_rule(type), session.key, column).stored = type;
                if (column == "session_id") session.has_key = false;
              });
}

void check_codes(const Row& row, const SessionRow& session, Findings& findings) {
  const auto report = [&](const Rule& rule, const char* column, int64_t code) {
    if (session.is_number(column)) findings.add(rule, session.key, column).stored = code;
  };
  const Rule* const wrong_type = wrong_session_type(session.key.type);
  if (wrong_type != nullptr) report(*wrong_type, "session_type", session.key.type);
  const int64_t is_top = row.int64(kIsTop);
  if (is_top != 0 && is_top != 1) report(CORVAN_RULE("code-impossible"), "is_top", is_top);
  const int64_t silence = row.int64(kSilence);
  if (!is_code(silence)) report(CORVAN_RULE("code-impossible"), "silence", silence);
}

// Compares one row of t_session with its messages.
class SessionCheck {
 public:
  // `named` is the message that latest_id names, or null.
  SessionCheck(const SessionRow& row, const Conversation& conversation, const LatestMessage* named,
               Findings& findings)
      : row_(row), conversation_(conversation), named_(named), findings_(findings) {
    const bool is_own = named != nullptr && named->has_key && named->conversation == row.key;
    if (is_own) own_latest_ = named;
  }

  void run() {
    check_counter("unread_count", row_.unread_count, conversation_.unread(),
                  CORVAN_RULE("counter-unread"));
    check_counter("mention_count", row_.mention_count, conversation_.mention(),
                  CORVAN_RULE("counter-mention"));
    if (can_check_latest()) check_latest();
    if (can_check_time()) check_session_time();
    check_times();
    add_unchecked();
  }

 private:
  bool has_conversation() const { return row_.has_key && conversation_.rows() == 1; }
  // Whether the column and the values that it depends on have the right types.
  bool can_check_counter(const char* column) const {
    return has_conversation() && conversation_.is_counted() && row_.is_number("read_time") &&
           row_.is_number(column);
  }
  bool can_check_latest() const {
    return has_conversation() && conversation_.has_times() && row_.is_number("latest_id");
  }
  bool can_check_time() const { return can_check_latest() && row_.is_number("session_time"); }

  Finding& add(const Rule& rule, const std::string& column) {
    Finding& finding = findings_.add(rule, row_.key, column);
    finding.row = row_.rowid;
    return finding;
  }

  void check_counter(const char* column, int64_t stored, const Recount& recount,
                     const Rule& too_high) {
    if (!can_check_counter(column)) return;
    const Rule* const broken = recount.broken_rule(stored, too_high);
    if (broken == nullptr) return;
    Finding& finding = add(*broken, column);
    if (!broken->repair.empty()) {
      finding.set_repair(stored, recount.repaired(stored));
      return;
    }
    finding.stored = stored;
    finding.derived = {{"least", 0}, {"most", recount.most()}};
  }

  // The rule that latest_id breaks, or null.
  const Rule* latest_rule() const {
    // If several messages share the newest time, latest_id may name any of them.
    if (own_latest_ != nullptr) {
      return own_latest_->time < conversation_.newest_time() ? &CORVAN_RULE("latest-older")
                                                             : nullptr;
    }
    if (named_ != nullptr) return &CORVAN_RULE("latest-foreign");
    if (row_.latest_id > 0) return &CORVAN_RULE("latest-missing");
    return conversation_.messages() > 0 ? &CORVAN_RULE("latest-none") : nullptr;
  }

  // The repair does what delete_message does: session_time becomes that of the latest message, and
  // stays if there is none.
  void check_latest() {
    const Rule* const broken = latest_rule();
    if (broken == nullptr) return;
    Finding& finding = add(*broken, "latest_id");
    finding.set_repair(row_.latest_id, conversation_.newest_id());
    const bool has_newest = conversation_.newest_id() > 0;
    if (!has_newest || !row_.is_number("session_time")) return;
    if (is_moved_by_draft(conversation_.newest_time())) return;
    finding.changes.push_back({"session_time", row_.session_time, conversation_.newest_time()});
  }

  // Whether a draft can explain that session_time is later than `time`: storing one moves it.
  bool is_moved_by_draft(int64_t time) const { return row_.has_draft && row_.session_time > time; }

  void check_session_time() {
    if (own_latest_ == nullptr) return;
    const int64_t newest = conversation_.newest_time();
    if (row_.session_time == own_latest_->time || row_.session_time == newest) return;
    if (is_moved_by_draft(own_latest_->time)) return;
    const bool is_note = row_.session_time > newest || own_latest_->is_own;
    add(is_note ? CORVAN_RULE("session-time-apart") : CORVAN_RULE("session-time"), "session_time")
        .set_repair(row_.session_time, newest);
  }

  void check_times() {
    check_time("session_time", row_.session_time);
    // 0: nothing was read, or no receipt was received.
    if (row_.read_time != 0) check_time("read_time", row_.read_time);
    if (row_.receipt_time != 0) check_time("receipt_time", row_.receipt_time);
  }

  void check_time(const char* column, int64_t time) {
    const Rule* const broken = row_.is_number(column) ? wrong_time(time, now_) : nullptr;
    if (broken != nullptr) add(*broken, column).stored = time;
  }

  void add_unchecked() {
    std::vector<std::string> columns;
    for (const char* const column : {"unread_count", "mention_count"}) {
      if (!can_check_counter(column)) columns.emplace_back(column);
    }
    if (!can_check_latest()) columns.emplace_back("latest_id");
    if (!can_check_time()) columns.emplace_back("session_time");
    if (columns.empty()) return;
    add(CORVAN_RULE("not-judged"), fmt::format("{}", fmt::join(columns, ", "))).unchecked =
        std::move(columns);
  }

  const SessionRow& row_;
  const Conversation& conversation_;
  const LatestMessage* const named_;
  const LatestMessage* own_latest_ = nullptr;  // named_ if it is in this conversation
  Findings& findings_;
  const int64_t now_ = time_now();
};

const Conversation kNoConversation;  // for rows without a key

const Conversation& conversation_of(const SessionRow& row, const Contents& contents) {
  const auto found = contents.conversations.find(row.key);
  return row.has_key && found != contents.conversations.end() ? found->second : kNoConversation;
}

const LatestMessage* latest_message_of(const SessionRow& row, const Contents& contents) {
  const auto found = contents.latest_messages.find(row.latest_id);
  return found != contents.latest_messages.end() && found->second.exists ? &found->second : nullptr;
}

}  // namespace

void read_sessions(StoreReader& store, Contents& contents) {
  std::string& row_id = contents.session_row_id;
  const int rc = find_row_id(store.connection(), "t_session", row_id);
  if (rc != SQLITE_DONE) row_id.clear();  // the query below reports the failure
  const std::string sql = fmt::format(kSessionQuery, row_id.empty() ? "0" : row_id);
  store.each_row("t_session", sql, [&](const Row& row) {
    SessionRow session = session_at(row);
    check_types(row, session, store.findings());
    check_codes(row, session, store.findings());
    if (session.has_key) contents.conversations[session.key].add_row(session.read_time);
    if (session.latest_id > 0 && session.is_number("latest_id")) {
      contents.latest_messages.try_emplace(session.latest_id);
    }
    contents.sessions.push_back(std::move(session));
  });
}

void check_sessions(const Contents& contents, Findings& findings) {
  for (const SessionRow& row : contents.sessions) {
    const Conversation& conversation = conversation_of(row, contents);
    SessionCheck(row, conversation, latest_message_of(row, contents), findings).run();
    if (conversation.rows() == 1 && conversation.messages() == 0) {
      findings.add(CORVAN_RULE("session-empty"), row.key, "t_session");
    }
  }
  for (const auto& [key, conversation] : contents.conversations) {
    if (conversation.rows() < 2) continue;
    findings.add(CORVAN_RULE("row-twice"), key, "t_session").stored = conversation.rows();
  }
}

}  // namespace corvan_tool
