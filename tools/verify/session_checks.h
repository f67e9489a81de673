// What a conversation's row says, against what its messages come to.

#ifndef TOOLS_VERIFY_SESSION_CHECKS_H_
#define TOOLS_VERIFY_SESSION_CHECKS_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tools/verify/findings.h"

namespace corvan_tool {

// What a counter comes to by a conversation's messages:
// - A live save counts a received message unless its caller says otherwise (is_count), and a
//   mention in any case; one that is saved as history counts only when it is newer than its
//   conversation. What is unread then counts until it is marked read or deleted by id.
// - clear_unread sets the counters to 0, and read_time to the time of the newest received message.
//   Later messages, and those that came after the first received one of that time, may have been
//   counted since; of the others, only what was marked unread again.
// - In a chat room every message is stored as read, and whether it counts is the client's choice.
// No row tells what was saved uncounted, so no message counts for sure.
struct Recount {
  int64_t newer = 0;   // unread, received, later than read_time and than all that came before them
  int64_t late = 0;    // the others that came since the last clearing, as far as the rows tell
  int64_t before = 0;  // count only if they were marked unread after it

  int64_t most() const { return newer + late + before; }
  // What becomes of a counter: one too low is raised no further than what came as live ones do.
  int64_t mended(int64_t stored) const { return stored < newer ? newer : newer + late; }
  // The kind of finding that a counter is; null when it is a recount.
  const Kind* judge(int64_t stored, const Kind& too_high) const;
};

enum class LatestState { kGood, kNoMessages, kNone, kMissing, kForeign, kOlder };

// A row of t_session with what the messages say of it.
struct SessionRow {
  int64_t rowid = 0;
  ConversationKey key;
  bool has_key = true;               // its key is one, and no other row has the same
  std::set<std::string> no_numbers;  // the columns that hold another type than their own
  bool has_draft = false;
  int64_t session_time = 0;
  int64_t unread_count = 0;
  int64_t mention_count = 0;
  int64_t latest_id = 0;
  int64_t read_time = 0;
  int64_t receipt_time = 0;

  // Whether the columns, and those of the messages that they follow from, hold what they should.
  bool judges_unread = false;
  bool judges_mention = false;
  bool judges_latest = false;
  bool judges_time = false;

  Recount unread;
  Recount mention;
  LatestState latest = LatestState::kNoMessages;
  int64_t latest_time = 0;     // of the message that latest_id names
  bool latest_is_own = false;  // that message is of direction 0
  int64_t newest_id = -1;      // as get_message_latestid has it
  int64_t newest_time = 0;

  bool is_number(const std::string& column) const { return no_numbers.count(column) == 0; }
  // The kinds of finding that the columns are; null when they are right, or are not judged.
  const Kind* unread_kind() const;
  const Kind* mention_kind() const;
  const Kind* latest_kind() const;
  const Kind* time_kind() const;
  // What session_time should be, where time_kind() tells: of an older latest message the newest
  // one's time.
  int64_t right_time() const { return latest == LatestState::kOlder ? newest_time : latest_time; }
  // Whether a draft explains that session_time is later than `time`: storing it moved it.
  bool is_moved_by_draft(int64_t time) const { return has_draft && session_time > time; }
  // The columns that are not judged.
  std::vector<std::string> not_judged() const;
};

// What the messages of one conversation come to.
struct Conversation {
  std::vector<std::size_t> rows;  // of t_session, by their places; one, unless something is wrong
  int64_t read_time = 0;
  int64_t messages = 0;
  bool has_counted = true;   // every message could be counted
  bool has_times = true;     // every message's time is a number
  bool has_cleared = false;  // a received message of the time read_time has been met
  Recount unread;
  Recount mention;
  int64_t chat_before = 0;  // received in a chat room until read_time, before such a message
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

// Adds a message to what its conversation comes to. They come in the order of their ids, which is
// the order in which they were saved.
void count_message(Conversation& conversation, const Message& message, bool is_chat_room);

// Adds only its time, when what counts it is not known.
void pass_message(Conversation& conversation, int64_t id, int64_t sent_time);

// Completes a row with what its messages come to, and appends what is wrong with it. That the row's
// `latest` is kGood or kForeign, with `latest_time`, has been settled by the message that it names.
void judge(SessionRow& session, const Conversation& conversation, std::vector<Finding>& findings);

// The kind of finding that a time is; null for a plausible one. `now` is in milliseconds.
const Kind* wrong_time(int64_t time, int64_t now);

// This computer's time in milliseconds since the Unix epoch.
int64_t time_now();

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SESSION_CHECKS_H_
