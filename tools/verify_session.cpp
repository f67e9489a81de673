#include "tools/verify_session.h"

#include <chrono>
#include <map>
#include <string>
#include <tuple>
#include <utility>

namespace corvan_tool {

namespace {

constexpr int64_t kDay = int64_t{24} * 60 * 60 * 1000;
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
    if (session_.judges_unread) {
      find_counter(kind::kCounterUnread, "unread_count", session_.unread_count, session_.unread);
    }
    if (session_.judges_mention) {
      find_counter(kind::kCounterMention, "mention_count", session_.mention_count,
                   session_.mention);
    }
  }

  void find_counter(const Kind& kind, const char* column, int64_t stored, const Recount& recount) {
    if (!recount.allows(stored)) {
      Finding& finding = add(stored < 0 ? kind::kCounterNegative : kind, column);
      finding.stored = stored;
      finding.derived = recount.mended(stored);
      finding.mended = true;
    } else if (!recount.explains(stored)) {
      Finding& finding = add(kind::kCounterUntold, column);
      finding.stored = stored;
      finding.derived = {{"least", recount.sure}, {"most", recount.most()}};
    }
  }

  void find_latest() {
    if (!session_.has_wrong_latest()) return;
    static const std::map<LatestState, const Kind*> kinds = {
        {LatestState::kNone, &kind::kLatestNone},
        {LatestState::kMissing, &kind::kLatestMissing},
        {LatestState::kForeign, &kind::kLatestForeign},
        {LatestState::kOlder, &kind::kLatestOlder}};
    Finding& finding = add(*kinds.at(session_.latest), "latest_id");
    finding.stored = session_.latest_id;
    finding.derived = session_.newest_id;
    finding.mended = true;
  }

  void find_times() {
    const TimeState state = session_.time_state();
    if (state != TimeState::kRight) {
      Finding& finding =
          add(state == TimeState::kApart ? kind::kSessionTimeApart : kind::kSessionTime,
              "session_time");
      finding.stored = session_.session_time;
      finding.derived = session_.right_time();
      finding.mended = true;
    }
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

TimeState SessionRow::time_state() const {
  const bool names_own = latest == LatestState::kGood || latest == LatestState::kOlder;
  if (!judges_time || !names_own) return TimeState::kRight;
  if (session_time == latest_time || session_time == right_time()) return TimeState::kRight;
  if (is_moved_by_draft(latest_time)) return TimeState::kRight;
  return session_time > right_time() || latest_is_own ? TimeState::kApart : TimeState::kWrong;
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
  const bool is_newer = conversation.messages == 0 || m.sent_time > conversation.newest_time;
  const auto add = [&](Recount& recount) {
    const bool is_sure = m.direction == 1 && is_later && is_newer;
    ++(is_sure ? recount.sure : is_since ? recount.since : recount.before);
  };
  if (m.read_status == 0) add(conversation.unread);
  if (is_chat_room && m.direction != 0) {
    ++(is_since ? conversation.unread.since : conversation.chat_before);
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
  return time > now + kDay ? &kind::kTimeFuture : nullptr;
}

int64_t time_now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
}

}  // namespace corvan_tool
