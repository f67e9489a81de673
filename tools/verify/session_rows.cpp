#include "tools/verify/session_rows.h"

#include <fmt/format.h>

#include <array>
#include <string>
#include <utility>

#include "tools/store/schema.h"
#include "tools/verify/values.h"

namespace corvan_tool {

namespace {

// The columns of the query below.
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
  if (is_top != 0 && is_top != 1) report(rule("code-impossible"), "is_top", is_top);
  const int64_t silence = row.int64(kSilence);
  if (!is_code(silence)) report(rule("code-impossible"), "silence", silence);
}

}  // namespace

void read_sessions(RowReader& rows, Contents& contents, Findings& findings) {
  std::string& row_id = contents.session_row_id;
  const int rc = find_row_id(rows.connection(), "t_session", row_id);
  if (rc != SQLITE_DONE) row_id.clear();  // reading the rows reports the failure
  const std::string sql = fmt::format(kSessionQuery, row_id.empty() ? "0" : row_id);
  rows.each_row("t_session", sql, [&](const Row& row) {
    SessionRow session = session_at(row);
    check_types(row, session, findings);
    check_codes(row, session, findings);
    if (session.has_key) contents.conversations[session.key].add_row(session.read_time);
    if (session.latest_id > 0 && session.is_number("latest_id")) {
      contents.latest_messages.try_emplace(session.latest_id);
    }
    contents.sessions.push_back(std::move(session));
  });
}

}  // namespace corvan_tool
