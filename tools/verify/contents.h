// What the checks remember about a store's rows, to compare tables with each other.

#ifndef TOOLS_VERIFY_CONTENTS_H_
#define TOOLS_VERIFY_CONTENTS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/verify/findings.h"
#include "tools/verify/recount.h"

namespace corvan_tool {

// A row of t_session.
struct SessionRow {
  int64_t rowid = 0;  // 0 if SQL cannot name the table's row ids
  ConversationKey key;
  bool has_key = true;                // the key's columns have the right types
  std::set<std::string> not_numbers;  // number columns whose value has another type
  bool has_draft = false;
  int64_t session_time = 0;
  int64_t unread_count = 0;
  int64_t mention_count = 0;
  int64_t latest_id = 0;
  int64_t read_time = 0;
  int64_t receipt_time = 0;

  bool is_number(const std::string& column) const { return not_numbers.count(column) == 0; }
};

// A message that latest_id of a row of t_session names.
struct LatestMessage {
  bool exists = false;
  ConversationKey conversation;
  bool has_key = false;  // the key's columns have the right types
  int64_t time = 0;
  bool is_own = false;  // direction 0
};

struct HashKey {
  std::size_t operator()(const ConversationKey& key) const {
    return std::hash<std::string>()(key.id) * 31 + std::hash<int64_t>()(key.type);
  }
};

struct Contents {
  std::string session_row_id;        // the name of t_session's row ids in SQL; empty if none
  std::vector<SessionRow> sessions;  // in the order of the table
  std::unordered_map<ConversationKey, Conversation, HashKey> conversations;
  std::unordered_map<int64_t, LatestMessage> latest_messages;  // by id
  int64_t messages = 0;
  int64_t largest_id = 0;            // of a message
  int64_t newest_own_time = 0;       // of messages of direction 0
  int64_t newest_received_time = 0;  // of all others
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_CONTENTS_H_
