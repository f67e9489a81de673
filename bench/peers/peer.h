// What the contenders of this comparison have in common: the part of a message store that a client
// uses most, as far as every contender can be asked for the same.

#ifndef BENCH_PEERS_PEER_H_
#define BENCH_PEERS_PEER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_bench {

// All contenders exchange the records that the client has.
using Corvan::MessageResponse;
using Corvan::SessionInfo;

constexpr const char* kUser = "me";  // the signed-in user

// The values of MessageResponse::sent_status_ that matter here.
enum SentStatus : int32_t { kSent = 0, kSending = 1, kFailed = 2 };

struct ConversationName {
  std::string id;
  Corvan::SessionType kind = Corvan::SessionType(0);
};

inline ConversationName conversation_of(const MessageResponse& message) {
  return {message.session_id_, message.session_type_};
}

// A message is unread when it was received and its `read_status_` is 0.
inline bool is_unread(const MessageResponse& message) {
  return message.is_receive_ && message.read_status_ == 0;
}

// One store. Whatever it writes is on the disk when the call that commits returns. All operations
// throw when they fail.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  virtual ~Store() = default;

  // Opens the store in `folder`, which ends with "/", or creates it, and marks every message that
  // is still being sent as failed.
  virtual void open(const std::string& folder) = 0;
  virtual void close() = 0;

  // The transaction around save() and add(). The other writers are one transaction each.
  virtual void begin() = 0;
  virtual void commit() = 0;

  // Stores a message and brings its conversation's row up to date: newest message, its time,
  // unread messages and unread mentions. Returns the message's id; ids count from 1. Refuses, with
  // -1, a message whose server uid is stored, and an own one of a stored conversation, client uid
  // and sender.
  virtual int64_t save(const MessageResponse& message, bool mention) = 0;

  // save() of a message that is known to be new, so that a store which is slow at the tests can be
  // filled, too.
  virtual int64_t add(const MessageResponse& message, bool mention) = 0;

  // Pins a conversation.
  virtual void pin(const ConversationName& name) = 0;

  // The first `count` conversations, pinned first, then newest first, with their newest messages.
  virtual std::vector<SessionInfo> first_page(int32_t count) = 0;

  // Up to `count` messages sent before the message of this id, newest first.
  virtual std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                               int32_t count) = 0;

  // Unread messages of all conversations.
  virtual int64_t total_unread() = 0;

  // Called once, untimed, before mentions() of this conversation.
  virtual void prepare_mentions(const ConversationName& /*name*/) {}

  // The ten newest unread mentions, oldest first.
  virtual std::vector<MessageResponse> mentions(const ConversationName& name) = 0;

  // Marks the conversation's messages read, and no longer as mentions, and zeroes its counters.
  virtual void mark_read(const ConversationName& name) = 0;

  // Deletes messages, lowers the counters by the unread and the mentions among them, and points a
  // conversation whose newest message went at the newest that is left.
  virtual void remove(const std::vector<int64_t>& ids) = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_PEER_H_
