// Formats the messages of a conversation as HTML.

#ifndef TOOLS_EXPORT_HTML_MESSAGES_H_
#define TOOLS_EXPORT_HTML_MESSAGES_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/export/html/page_plan.h"
#include "tools/export/selection.h"

namespace corvan_tool {

struct ShownMessage {
  int64_t id = 0;
  std::string object_name;
  std::string content;
  std::string sender;
  Code direction;
  Code sent_status;
  Code read_status;
  bool is_mention = false;
  int64_t time = 0;

  bool is_own() const { return direction.number == 0; }
  bool is_unread() const { return !is_own() && read_status.number == 0; }
  // Whether the content is what the sender wrote; otherwise it is data for the client.
  bool is_text() const { return object_name == "CV:TxtMsg"; }
};

// The columns of t_message that read_message() takes, and a row of them.
extern const char* const kShownColumns;
void read_message(const Row& row, ShownMessage& message);

// Divides messages into sections by day, and sections into groups. Messages of one sender with
// little time between them are a group: only the first one shows the sender's name.
class MessageList {
 public:
  // `plan` must outlive the object.
  explicit MessageList(const PagePlan& plan) : plan_(plan) {}

  // Appends the next message of the conversation.
  void add(const ShownMessage& message, std::string& html);

  // Ends the page: the next message begins a new section.
  void end_page(std::string& html);

 private:
  bool begin_day(int64_t time, std::string& html);
  bool begin_new_messages(const ShownMessage& message, std::string& html);
  std::string month_anchor(int64_t time);
  bool continues_group(const ShownMessage& message) const;

  const PagePlan& plan_;
  std::size_t next_month_ = 0;
  int days_ = 0;  // on the page
  bool has_marked_new_ = false;
  // Of the last message:
  std::string day_;  // empty if it has no date
  std::string sender_;
  bool was_own_ = false;
  int64_t time_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_MESSAGES_H_
