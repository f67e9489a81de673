// What a conversation's row says, against what its messages come to.

#ifndef TOOLS_VERIFY_SESSION_H_
#define TOOLS_VERIFY_SESSION_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/verify_finding.h"

namespace corvan_tool {

// What a counter can be by a conversation's messages. The rules of the store:
// - A live save counts a received message when its caller says so, and a mention in any case. What
//   is unread then counts until it is marked read or deleted by id.
// - clear_unread sets the counters to 0, read_time to the time of the newest received message, and
//   marks the received messages after the read_time before. So a received message after read_time
//   that is unread is one that came since, and counts for sure.
// - It leaves unread what came late, with a time up to the read_time before, and what is not of
//   direction 1. Such a message counts when it came, or was marked unread, after the clearing, and
//   no row tells when that was.
// - In a chat room every message is stored as read, so that its counter cannot be told from them.
struct Recount {
  int64_t sure = 0;     // count in any case
  int64_t could = 0;    // count or not
  int64_t derived = 0;  // unread and received (as direction 1 or 2) after read_time: the store's
                        // own recount, were it to look at direction 1 as well

  bool allows(int64_t stored) const { return stored >= sure && stored <= sure + could; }
};

enum class LatestState { kGood, kNoMessages, kNone, kMissing, kForeign, kOlder };

// A row of t_session with what the messages say of it.
struct SessionRow {
  int64_t rowid = 0;
  ConversationKey key;
  bool usable = true;  // all its values, and its messages', are of their columns' types
  bool has_draft = false;
  int64_t session_time = 0;
  int64_t unread_count = 0;
  int64_t mention_count = 0;
  int64_t latest_id = 0;
  int64_t read_time = 0;
  int64_t receipt_time = 0;

  Recount unread;
  Recount mention;
  LatestState latest = LatestState::kNoMessages;
  int64_t latest_time = 0;  // of the message that latest_id names, when it is this conversation's
  int64_t newest_id = -1;   // as get_message_latestid has it
  int64_t newest_time = 0;

  bool counts_unread() const;  // false in a chat room: derived then says nothing
  bool has_wrong_unread() const { return usable && !unread.allows(unread_count); }
  bool has_wrong_mention() const { return usable && !mention.allows(mention_count); }
  bool has_wrong_latest() const {
    return usable && latest != LatestState::kGood && latest != LatestState::kNoMessages;
  }
  bool has_wrong_time() const;
};

// What the messages of one conversation come to.
struct Conversation {
  std::vector<std::size_t> rows;  // of t_session, by their places; one, unless something is wrong
  int64_t read_time = 0;
  int64_t messages = 0;
  bool usable = true;
  Recount unread;
  Recount mention;
  int64_t newest_id = -1;
  int64_t newest_time = 0;
};

struct Message {
  int64_t id = 0;
  int64_t direction = 0;
  int64_t sent_status = 0;
  int64_t read_status = 0;
  int64_t is_mention = 0;
  int64_t sent_time = 0;
};

// Adds a message to what its conversation comes to.
void count_message(Conversation& conversation, const Message& message, bool is_chat_room);

// Completes a usable row with what its messages come to, and appends what is wrong with it. That
// the row's `latest` is kGood or kForeign, with `latest_time`, has been settled by the message that
// it names.
void judge(SessionRow& session, const Conversation& conversation, std::vector<Finding>& findings);

// The kind of finding that a time is; null for a plausible one. `now` is in milliseconds.
const Kind* wrong_time(int64_t time, int64_t now);

// This computer's time in milliseconds since the Unix epoch.
int64_t time_now();

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SESSION_H_
