// What verify finds in a store.

#ifndef TOOLS_VERIFY_FINDINGS_H_
#define TOOLS_VERIFY_FINDINGS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tools/ui/json.h"
#include "tools/verify/rules.h"

namespace corvan_tool {

struct ConversationKey {
  std::string id;
  int64_t type = 0;
  bool operator==(const ConversationKey& other) const {
    return id == other.id && type == other.type;
  }
};

// "room (group)"
std::string conversation_text(const ConversationKey& key);

// A value that --repair writes.
struct Change {
  std::string name;  // the column of t_session, the index, or the table
  Json old_value;    // null: there is no such index
  Json new_value;    // null: the index is dropped
};

// NOLINTNEXTLINE(bugprone-exception-escape): JSON values move without throwing, checks aside.
struct Finding {
  const Rule* rule = nullptr;
  std::optional<ConversationKey> conversation;
  int64_t row = 0;                // the row id in t_session; 0 outside of that table
  std::vector<int64_t> messages;  // ids in ascending order
  std::string name;               // the column, table, index, setting or user
  Json stored;                    // the stored value; null if there is no single one
  Json derived;                   // the value according to the rest of the store; null if unknown
  std::vector<Change> changes;    // the repair; empty if the finding cannot be repaired
  std::vector<std::string> unchecked;  // the columns of "not-judged"

  // Sets `stored` and `derived`, and adds the change from `old_value` to `new_value`.
  void set_repair(Json old_value, Json new_value);
};

// The findings so far, in the order in which they were added. --repair applies them in this order.
class Findings {
 public:
  // The returned references are valid until the next call.
  Finding& add(const Rule& rule, std::string name);
  Finding& add(const Rule& rule, const ConversationKey& conversation, std::string name);
  void add(Finding finding) { all_.push_back(std::move(finding)); }

  std::vector<Finding> take() { return std::move(all_); }

 private:
  std::vector<Finding> all_;
};

// Collects findings about messages: one finding for all messages of a conversation that share a
// rule, a column and a value.
class MessageFindings {
 public:
  void add(const Rule& rule, const ConversationKey& conversation, int64_t id,
           const std::string& column, const Json& stored);

  // As add(), for the column sent_time: all times share one finding, which stores their range.
  void add_time(const Rule& rule, const ConversationKey& conversation, int64_t id, int64_t time);

  void move_to(Findings& findings);

 private:
  // Rule, conversation, column, and the value as JSON text.
  using Key = std::tuple<const Rule*, std::string, int64_t, std::string, std::string>;

  // The finding of this key, with the message added.
  Finding& at(const Key& key, int64_t id);

  std::map<Key, Finding> all_;
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_FINDINGS_H_
