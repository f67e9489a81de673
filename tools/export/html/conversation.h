// Writes the pages of one conversation.

#ifndef TOOLS_EXPORT_HTML_CONVERSATION_H_
#define TOOLS_EXPORT_HTML_CONVERSATION_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/export/output.h"
#include "tools/export/selection.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

struct HtmlConversation {
  std::string messages;  // the part "from t_message where ..." of a statement
  std::string id;
  std::string title;
  std::string draft;
  Code type;
  int64_t is_top = 0;
  int64_t silence = 0;
  int64_t unread = 0;
  int64_t mentions = 0;
  int64_t time = 0;
  bool has_row = true;  // false if there is no row in t_session, only messages

  // The title, otherwise the id, otherwise "no id".
  std::string name() const;
};

// What the list of conversations shows about the newest message.
struct HtmlNewest {
  int64_t messages = 0;  // in the conversation
  int64_t time = 0;
  std::string sender;
  std::string text;  // its beginning
};

// The file of a page. Conversations and pages count from 1.
std::string page_file(std::size_t conversation, std::size_t page);

// Writes the pages of the conversation with this number to `folder`. Throws ToolError if the store
// cannot be read or a page cannot be written.
HtmlNewest write_conversation(const ExportSource& source, const HtmlConversation& conversation,
                              const std::string& folder, std::size_t number, ExportCounts& counts,
                              Progress& progress);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_CONVERSATION_H_
