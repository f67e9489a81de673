// The interface of all contenders: the operations that a client uses most, as far as every
// contender can provide them.

#ifndef BENCH_PEERS_PEER_H_
#define BENCH_PEERS_PEER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_bench {

// All contenders use the records of the client.
using Corvan::MessageResponse;
using Corvan::SessionInfo;

constexpr const char* kUser = "me";  // the signed-in user

// Values of MessageResponse::sent_status_ that are used here.
enum SentStatus : int32_t { kSent = 0, kSending = 1, kFailed = 2 };

struct ConversationName {
  std::string id;
  Corvan::SessionType kind = Corvan::SessionType(0);
};

inline ConversationName conversation_of(const MessageResponse& message) {
  return {message.session_id_, message.session_type_};
}

// A message is unread if it was received and its `read_status_` is 0.
inline bool is_unread(const MessageResponse& message) {
  return message.is_receive_ && message.read_status_ == 0;
}

// One store. All changes are on the disk when the committing call returns. All operations throw on
// failure.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  virtual ~Store() = default;

  // Opens or creates the store in `folder`, which ends with "/", and marks every message that is
  // still being sent as failed.
  virtual void open(const std::string& folder) = 0;
  virtual void close() = 0;

  // The transaction around save() and add(). Each other write is its own transaction.
  virtual void begin() = 0;
  virtual void commit() = 0;

  // Stores a message and updates its conversation's row: newest message, its time, unread messages
  // and unread mentions. Returns the message's id, counted from 1. Returns -1 for a duplicate: a
  // message whose server uid is stored, or an own message whose conversation, client uid and sender
  // are.
  virtual int64_t save(const MessageResponse& message, bool mention) = 0;

  // As save(), for a message that is known to be new. Fills stores whose duplicate checks are slow.
  virtual int64_t add(const MessageResponse& message, bool mention) = 0;

  // Pins a conversation.
  virtual void pin(const ConversationName& name) = 0;

  // The first `count` conversations with their newest messages: pinned first, then newest first.
  virtual std::vector<SessionInfo> first_page(int32_t count) = 0;

  // Up to `count` messages sent before the message of this id, newest first.
  virtual std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                               int32_t count) = 0;

  // Unread messages of all conversations.
  virtual int64_t total_unread() = 0;

  // Called once, without timing, before mentions() of this conversation.
  virtual void prepare_mentions(const ConversationName& /*name*/) {}

  // The ten newest unread mentions, oldest first.
  virtual std::vector<MessageResponse> mentions(const ConversationName& name) = 0;

  // Marks the conversation's messages as read and not as mentions, and resets its counters to 0.
  virtual void mark_read(const ConversationName& name) = 0;

  // Deletes messages, lowers the counters by the unread messages and mentions among them, and
  // updates the newest message of each conversation.
  virtual void remove(const std::vector<int64_t>& ids) = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_PEER_H_
