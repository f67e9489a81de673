#include "tools/verify_session.h"

#include <chrono>
#include <map>
#include <string>
#include <tuple>
#include <utility>

#include "db/cv_db_records.h"

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
    const auto find = [&](const Kind& kind, const char* column, int64_t stored,
                          const Recount& recount, bool derivable) {
      Finding& finding = add(stored < 0 ? kind::kCounterNegative : kind, column);
      finding.stored = stored;
      if (derivable) finding.derived = recount.derived;
      finding.mended = derivable;
    };
    if (session_.has_wrong_unread()) {
      find(kind::kCounterUnread, "unread_count", session_.unread_count, session_.unread,
           session_.counts_unread());
    }
    if (session_.has_wrong_mention()) {
      find(kind::kCounterMention, "mention_count", session_.mention_count, session_.mention, true);
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
    if (session_.has_wrong_time()) {
      Finding& finding = add(kind::kSessionTime, "session_time");
      finding.stored = session_.session_time;
      finding.derived = session_.latest_time;
      finding.mended = true;
    }
    check_time("session_time", session_.session_time);
    // 0: nothing was read, or no receipt came.
    if (session_.read_time != 0) check_time("read_time", session_.read_time);
    if (session_.receipt_time != 0) check_time("receipt_time", session_.receipt_time);
  }

  void check_time(const char* column, int64_t time) {
    const Kind* const wrong = wrong_time(time, now_);
    if (wrong != nullptr) add(*wrong, column).stored = time;
  }

  const SessionRow& session_;
  std::vector<Finding>& findings_;
  const int64_t now_ = time_now();
};

}  // namespace

bool SessionRow::counts_unread() const {
  return key.type != Corvan::CV_CHATROOM;
}

bool SessionRow::has_wrong_time() const {
  const bool names_own = latest == LatestState::kGood || latest == LatestState::kOlder;
  // A draft moves the conversation to the time at which it was stored.
  return usable && names_own && session_time != latest_time &&
         !(has_draft && session_time > latest_time);
}

void count_message(Conversation& conversation, const Message& m, bool is_chat_room) {
  const bool is_after = m.sent_time > conversation.read_time;
  const bool is_unread = m.read_status == 0;
  const bool is_copied = m.direction == 2 && is_unread && is_after;
  if (is_unread) {
    const bool is_sure = m.direction == 1 && is_after;
    ++(is_sure ? conversation.unread.sure : conversation.unread.could);
    if (is_sure || is_copied) ++conversation.unread.derived;
  } else if (is_chat_room && m.direction != 0) {
    ++conversation.unread.could;
  }
  if (m.is_mention == 1) {
    const bool is_sure = m.direction == 1 && is_after;
    ++(is_sure ? conversation.mention.sure : conversation.mention.could);
    if (is_sure || is_copied) ++conversation.mention.derived;
  }
  ++conversation.messages;
  if (conversation.newest_id < 0 ||
      std::tie(m.sent_time, m.id) > std::tie(conversation.newest_time, conversation.newest_id)) {
    conversation.newest_id = m.id;
    conversation.newest_time = m.sent_time;
  }
}

void judge(SessionRow& session, const Conversation& conversation, std::vector<Finding>& findings) {
  session.unread = conversation.unread;
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
