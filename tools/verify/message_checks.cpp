#include "tools/verify/message_checks.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "db/cv_db_records.h"
#include "tools/ui/progress.h"
#include "tools/verify/values.h"

namespace corvan_tool {

namespace {

// The columns of kMessageQuery.
enum MessageColumn {
  kId,
  kMessageSession,
  kMessageType,
  kDirection,
  kSentStatus,
  kReadStatus,
  kIsMention,
  kSentTime,
  kClientUid,
  kFirstMessageTextType
};
constexpr const char* kMessageQuery =
    "select id,session_id,session_type,direction,sent_status,read_status,is_mention,"
    "sent_time,client_uid,typeof(session_id),typeof(object_name),typeof(content),"
    "typeof(sender),typeof(server_uid) from t_message not indexed order by id";
constexpr std::array<const char*, 7> kMessageNumbers = {"session_type", "direction",  "sent_status",
                                                        "read_status",  "is_mention", "sent_time",
                                                        "client_uid"};
constexpr std::array<const char*, 5> kMessageTexts = {"session_id", "object_name", "content",
                                                      "sender", "server_uid"};

Message message_values(const Row& row) {
  Message message;
  message.id = row.int64(kId);
  message.direction = row.int64(kDirection);
  message.sent_status = row.int64(kSentStatus);
  message.read_status = row.int64(kReadStatus);
  message.is_mention = row.int64(kIsMention);
  message.sent_time = row.int64(kSentTime);
  return message;
}

// Checks one row by itself.
class MessageCheck {
 public:
  MessageCheck(const Row& row, const Message& message, const ConversationKey& key, int64_t now,
               MessageFindings& findings)
      : row_(row), message_(message), key_(key), now_(now), findings_(findings) {}

  // Returns whether the key's columns have the right types.
  bool run() {
    const bool has_key = check_types();
    if (message_.id < 1) add(CORVAN_RULE("id-impossible"), "id", message_.id);
    check_codes();
    if (is_integer(row_, kDirection)) check_direction();
    if (is_integer(row_, kSentStatus)) check_sent_status();
    const Rule* const wrong =
        is_integer(row_, kSentTime) ? wrong_time(message_.sent_time, now_) : nullptr;
    if (wrong != nullptr) findings_.add_time(*wrong, key_, message_.id, message_.sent_time);
    return has_key;
  }

 private:
  void add(const Rule& rule, const char* column, const Json& stored) {
    findings_.add(rule, key_, message_.id, column, stored);
  }

  bool check_types() {
    bool has_key = is_integer(row_, kMessageType);
    check_integers(row_, kMessageType, kMessageNumbers, [&](const char* column, const char* type) {
      add(number_type_rule(type), column, type);
    });
    check_texts(row_, kFirstMessageTextType, kMessageTexts,
                [&](const char* column, const std::string& type) {
                  add(text_type_rule(type), column, type);
                  if (std::string_view(column) == "session_id") has_key = false;
                });
    return has_key;
  }

  void check_codes() {
    const Rule* const wrong_type =
        is_integer(row_, kMessageType) ? wrong_session_type(key_.type) : nullptr;
    if (wrong_type != nullptr) add(*wrong_type, "session_type", key_.type);
    if (is_integer(row_, kReadStatus) && !is_code(message_.read_status)) {
      add(CORVAN_RULE("code-impossible"), "read_status", message_.read_status);
    }
    const bool is_flag = message_.is_mention == 0 || message_.is_mention == 1;
    if (is_integer(row_, kIsMention) && !is_flag) {
      add(CORVAN_RULE("code-impossible"), "is_mention", message_.is_mention);
    }
  }

  void check_direction() {
    if (message_.direction == 2) {
      add(CORVAN_RULE("direction-copied"), "direction", 2);
    } else if (message_.direction != 0 && message_.direction != 1) {
      add(CORVAN_RULE("code-impossible"), "direction", message_.direction);
    } else if (message_.direction == 0 && is_integer(row_, kReadStatus) &&
               message_.read_status == 0) {
      add(CORVAN_RULE("own-unread"), "read_status", 0);
    }
  }

  void check_sent_status() {
    const int64_t status = message_.sent_status;
    if (status == 1) add(CORVAN_RULE("sending"), "sent_status", status);
    if (status == 2) add(CORVAN_RULE("failed"), "sent_status", status);
    if (status >= 0 && status <= 3) return;
    add(is_code(status) ? CORVAN_RULE("status-unknown") : CORVAN_RULE("code-impossible"),
        "sent_status", status);
  }

  const Row row_;
  const Message& message_;
  const ConversationKey& key_;
  const int64_t now_;
  MessageFindings& findings_;
};

class MessageReader {
 public:
  MessageReader(Contents& contents, MessageFindings& findings)
      : contents_(contents), findings_(findings) {}

  void take(const Row& row) {
    find_conversation(row);
    const ConversationKey& key = current_->first;
    const Message message = message_values(row);
    ++contents_.messages;
    contents_.largest_id = std::max(contents_.largest_id, message.id);
    const bool has_key = MessageCheck(row, message, key, now_, findings_).run();
    note_latest(message, has_key);
    if (has_key) count(row, message);
  }

 private:
  // Consecutive messages often belong to one conversation.
  void find_conversation(const Row& row) {
    const std::string_view id = row.text_view(kMessageSession);
    const int64_t type = row.int64(kMessageType);
    if (current_ != nullptr && current_->first.type == type && current_->first.id == id) return;
    current_ = &*contents_.conversations.try_emplace({std::string(id), type}).first;
  }

  // Remembers the message if latest_id of a row of t_session names it.
  void note_latest(const Message& message, bool has_key) {
    const auto named = contents_.latest_messages.find(message.id);
    if (named == contents_.latest_messages.end()) return;
    named->second = {true, current_->first, has_key, message.sent_time, message.direction == 0};
  }

  // Values of the wrong type are not counted.
  void count(const Row& row, const Message& message) {
    Conversation& conversation = current_->second;
    const bool has_time = is_integer(row, kSentTime);
    const bool has_direction = is_integer(row, kDirection);
    if (has_time && has_direction && is_integer(row, kReadStatus) && is_integer(row, kIsMention)) {
      conversation.count(message, current_->first.type == Corvan::CV_CHATROOM);
    } else {
      conversation.add_uncounted(message, has_time);
    }
    if (!has_time || !has_direction) return;
    int64_t& newest =
        message.direction == 0 ? contents_.newest_own_time : contents_.newest_received_time;
    newest = std::max(newest, message.sent_time);
  }

  Contents& contents_;
  MessageFindings& findings_;
  const int64_t now_ = time_now();
  std::pair<const ConversationKey, Conversation>* current_ = nullptr;  // of the last message
};

}  // namespace

void read_messages(StoreReader& store, Contents& contents, MessageFindings& findings) {
  constexpr int64_t kShownEach = 4096;
  Progress progress("messages");
  MessageReader reader(contents, findings);
  store.each_row("t_message", kMessageQuery, [&](const Row& row) {
    reader.take(row);
    if (contents.messages % kShownEach == 0) {
      progress.show(static_cast<std::uint64_t>(contents.messages));
    }
  });
}

void find_orphans(StoreReader& store, const Contents& contents, MessageFindings& findings) {
  const auto is_orphan = [](const auto& entry) {
    return entry.second.rows() == 0 && entry.second.messages() > 0;
  };
  const auto& all = contents.conversations;
  if (std::none_of(all.begin(), all.end(), is_orphan)) return;
  const StatementProgress progress(store.connection().handle(), "million steps of naming messages");
  store.each_row("t_message",
                 "select session_id,session_type,id from t_message not indexed "
                 "where typeof(session_id)='text' and typeof(session_type)='integer' order by id",
                 [&](const Row& row) {
                   const ConversationKey key = {row.text(0), row.int64(1)};
                   const auto found = all.find(key);
                   if (found == all.end() || !is_orphan(*found)) return;
                   findings.add(CORVAN_RULE("session-missing"), key, row.int64(2), "t_session",
                                nullptr);
                 });
}

}  // namespace corvan_tool
