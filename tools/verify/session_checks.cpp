#include "tools/verify/session_checks.h"

#include <chrono>
#include <string>
#include <tuple>
#include <utility>

namespace corvan_tool {

namespace {

constexpr int64_t kOneDay = int64_t{24} * 60 * 60 * 1000;
// In seconds this is the year 5138, in milliseconds 1973: no message is so late, or so early.
constexpr int64_t kLeastTime = 100'000'000'000;
// Likewise for microseconds and milliseconds.
constexpr int64_t kMostTime = 100'000'000'000'000;

void settle_latest(SessionRow& session, const Conversation& conversation) {
  if (session.latest == LatestState::kForeign) return;
  if (session.latest == LatestState::kGood) {
    // Of several messages of the newest time any one will do.
    if (session.latest_time < conversation.newest_time) session.latest = LatestState::kOlder;
  } else if (session.latest_id > 0) {
    session.latest = LatestState::kMissing;
  } else if (conversation.messages > 0) {
    session.latest = LatestState::kNone;
  }
}

// Appends the findings of one row.
class Judgement {
 public:
  Judgement(const SessionRow& session, std::vector<Finding>& findings)
      : session_(session), findings_(findings) {}

  void run() {
    find_counters();
    find_latest();
    find_times();
    find_not_judged();
  }

 private:
  Finding& add(const Kind& kind, const std::string& column) {
    Finding finding;
    finding.kind = &kind;
    finding.conversation = session_.key;
    finding.name = column;
    findings_.push_back(std::move(finding));
    return findings_.back();
  }

  void find_counters() {
    find_counter(session_.unread_kind(), "unread_count", session_.unread_count, session_.unread);
    find_counter(session_.mention_kind(), "mention_count", session_.mention_count,
                 session_.mention);
  }

  void find_counter(const Kind* kind, const char* column, int64_t stored, const Recount& recount) {
    if (kind == &kind::kCounterUntold) {
      Finding& finding = add(*kind, column);
      finding.stored = stored;
      finding.derived = {{"least", 0}, {"most", recount.most()}};
    } else {
      find_mended(kind, column, stored, recount.mended(stored));
    }
  }

  // Null is no finding.
  void find_mended(const Kind* kind, const char* column, int64_t stored, int64_t derived) {
    if (kind == nullptr) return;
    Finding& finding = add(*kind, column);
    finding.stored = stored;
    finding.derived = derived;
    finding.mended = true;
  }

  void find_latest() {
    find_mended(session_.latest_kind(), "latest_id", session_.latest_id, session_.newest_id);
  }

  void find_times() {
    find_mended(session_.time_kind(), "session_time", session_.session_time, session_.right_time());
    check_time("session_time", session_.session_time);
    // 0: nothing was read, or no receipt came.
    if (session_.read_time != 0) check_time("read_time", session_.read_time);
    if (session_.receipt_time != 0) check_time("receipt_time", session_.receipt_time);
  }

  void check_time(const char* column, int64_t time) {
    const Kind* const wrong = session_.is_number(column) ? wrong_time(time, now_) : nullptr;
    if (wrong != nullptr) add(*wrong, column).stored = time;
  }

  void find_not_judged() {
    std::string columns;
    for (const std::string& column : session_.not_judged()) {
      columns += columns.empty() ? column : ", " + column;
    }
    if (!columns.empty()) add(kind::kNotJudged, columns);
  }

  const SessionRow& session_;
  std::vector<Finding>& findings_;
  const int64_t now_ = time_now();
};

}  // namespace

const Kind* Recount::judge(int64_t stored, const Kind& too_high) const {
  if (stored < 0) return &kind::kCounterNegative;
  if (stored > most()) return &too_high;
  if (stored < newer) return &kind::kCounterLow;
  return stored == newer || stored == newer + late ? nullptr : &kind::kCounterUntold;
}

const Kind* SessionRow::unread_kind() const {
  return judges_unread ? unread.judge(unread_count, kind::kCounterUnread) : nullptr;
}

const Kind* SessionRow::mention_kind() const {
  return judges_mention ? mention.judge(mention_count, kind::kCounterMention) : nullptr;
}

const Kind* SessionRow::latest_kind() const {
  if (!judges_latest) return nullptr;
  switch (latest) {
    case LatestState::kNone:
      return &kind::kLatestNone;
    case LatestState::kMissing:
      return &kind::kLatestMissing;
    case LatestState::kForeign:
      return &kind::kLatestForeign;
    case LatestState::kOlder:
      return &kind::kLatestOlder;
    case LatestState::kGood:
    case LatestState::kNoMessages:
      break;
  }
  return nullptr;
}

const Kind* SessionRow::time_kind() const {
  const bool names_own = latest == LatestState::kGood || latest == LatestState::kOlder;
  if (!judges_time || !names_own) return nullptr;
  if (session_time == latest_time || session_time == right_time()) return nullptr;
  if (is_moved_by_draft(latest_time)) return nullptr;
  return session_time > right_time() || latest_is_own ? &kind::kSessionTimeApart
                                                      : &kind::kSessionTime;
}

std::vector<std::string> SessionRow::not_judged() const {
  std::vector<std::string> columns;
  if (!judges_unread) columns.emplace_back("unread_count");
  if (!judges_mention) columns.emplace_back("mention_count");
  if (!judges_latest) columns.emplace_back("latest_id");
  if (!judges_time) columns.emplace_back("session_time");
  return columns;
}

void count_message(Conversation& conversation, const Message& m, bool is_chat_room) {
  const bool is_later = m.sent_time > conversation.read_time;
  const bool is_since = is_later || conversation.has_cleared;
  // Were it saved as history, an older message would not be counted.
  const bool is_newer = m.direction == 1 && is_later &&
                        (conversation.messages == 0 || m.sent_time > conversation.newest_time);
  const auto add = [&](Recount& recount) {
    ++(is_newer ? recount.newer : is_since ? recount.late : recount.before);
  };
  if (m.read_status == 0) add(conversation.unread);
  if (is_chat_room && m.direction != 0) {
    ++(is_since ? conversation.unread.late : conversation.chat_before);
  }
  if (m.is_mention == 1) add(conversation.mention);
  if (m.direction == 1 && m.sent_time == conversation.read_time) conversation.has_cleared = true;
  pass_message(conversation, m.id, m.sent_time);
}

void pass_message(Conversation& conversation, int64_t id, int64_t sent_time) {
  ++conversation.messages;
  if (conversation.newest_id < 0 ||
      std::tie(sent_time, id) > std::tie(conversation.newest_time, conversation.newest_id)) {
    conversation.newest_id = id;
    conversation.newest_time = sent_time;
  }
}

void judge(SessionRow& session, const Conversation& conversation, std::vector<Finding>& findings) {
  const bool can_count =
      session.has_key && conversation.has_counted && session.is_number("read_time");
  session.judges_unread = can_count && session.is_number("unread_count");
  session.judges_mention = can_count && session.is_number("mention_count");
  session.judges_latest =
      session.has_key && conversation.has_times && session.is_number("latest_id");
  session.judges_time = session.judges_latest && session.is_number("session_time");
  session.unread = conversation.unread;
  // Nothing tells what came before the clearing.
  if (!conversation.has_cleared) session.unread.before += conversation.chat_before;
  session.mention = conversation.mention;
  session.newest_id = conversation.newest_id;
  session.newest_time = conversation.newest_time;
  settle_latest(session, conversation);
  Judgement(session, findings).run();
}

const Kind* wrong_time(int64_t time, int64_t now) {
  if (time < kLeastTime || time >= kMostTime) return &kind::kTimeUnit;
  return time > now + kOneDay ? &kind::kTimeFuture : nullptr;
}

int64_t time_now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
}

}  // namespace corvan_tool
