// Counts a conversation's messages, to compare the result with its row.

#ifndef TOOLS_VERIFY_RECOUNT_H_
#define TOOLS_VERIFY_RECOUNT_H_

#include <cstddef>
#include <cstdint>

#include "tools/verify/rules.h"

namespace corvan_tool {

// The value of a counter according to a conversation's messages:
// - A live save counts a received message unless its caller passes is_count=false, and always
//   counts a mention. A message that is saved as history counts only if it is newer than its
//   conversation. It counts as unread until it is marked read or deleted by id.
// - clear_unread sets the counters to 0, and read_time to the time of the newest received message.
//   Messages that are later than read_time, or were saved after the first received message of that
//   time, may have been counted since. Other messages count only if they were marked unread again.
// - In a chat room every message is stored as read, and the client chooses whether it counts.
// No row records which messages were saved uncounted, so no message counts for certain.
struct Recount {
  int64_t newer = 0;   // received, unread, later than read_time and than all earlier messages
  int64_t late = 0;    // other messages since the last clearing, as far as the rows show it
  int64_t before = 0;  // messages that count only if they were marked unread after the clearing

  int64_t most() const { return newer + late + before; }
  // The value that --repair sets. A counter that is too low is raised only to the number of
  // messages that arrived in order.
  int64_t repaired(int64_t stored) const { return stored < newer ? newer : newer + late; }
  // The rule that a stored counter breaks; null if the counter is right.
  const Rule* broken_rule(int64_t stored, const Rule& too_high) const;
};

struct Message {
  int64_t id = 0;
  int64_t direction = 0;
  int64_t sent_status = 0;
  int64_t read_status = 0;
  int64_t is_mention = 0;
  int64_t sent_time = 0;
};

// The messages of one conversation, counted in the order of their ids, in which they were saved.
class Conversation {
 public:
  // A row of t_session with this conversation's key, and its read_time.
  void add_row(int64_t read_time);

  void count(const Message& message, bool is_chat_room);
  // Adds a message that cannot be counted because a value has the wrong type.
  void add_uncounted(const Message& message, bool has_time);

  Recount unread() const;
  const Recount& mention() const { return mention_; }
  int64_t messages() const { return messages_; }
  // The newest message, as get_message_latestid finds it; -1 and 0 if there is none.
  int64_t newest_id() const { return newest_id_; }
  int64_t newest_time() const { return newest_time_; }

  // One, unless keys are wrong.
  std::size_t rows() const { return rows_; }
  // Whether every message could be counted.
  bool is_counted() const { return is_counted_; }
  // Whether every message has a time.
  bool has_times() const { return has_times_; }

 private:
  void take_newest(const Message& message);

  std::size_t rows_ = 0;
  int64_t read_time_ = 0;
  int64_t messages_ = 0;
  bool is_counted_ = true;
  bool has_times_ = true;
  bool is_cleared_ = false;  // a received message of the time read_time was counted
  Recount unread_;
  Recount mention_;
  int64_t chat_before_ = 0;  // received in a chat room up to read_time, before is_cleared_ was set
  int64_t newest_id_ = -1;
  int64_t newest_time_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_RECOUNT_H_
