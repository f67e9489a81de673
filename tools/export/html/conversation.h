// The pages of one conversation.

#ifndef TOOLS_EXPORT_HTML_CONVERSATION_H_
#define TOOLS_EXPORT_HTML_CONVERSATION_H_

#include <cstdint>
#include <string>

#include "tools/export/html/text.h"
#include "tools/export/output.h"
#include "tools/export/selection.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

struct HtmlConversation {
  std::string messages;  // "from t_message where ...", which finds its messages
  std::string id;
  std::string title;
  std::string draft;
  Code kind;
  int64_t is_top = 0;
  int64_t silence = 0;
  int64_t unread = 0;
  int64_t mentions = 0;
  int64_t time = 0;
  bool has_row = true;  // false: its messages are all there is

  // What it is called: its title, its id, or a word that it has neither.
  std::string name() const;
};

// What the list of conversations says of the newest message.
struct HtmlNewest {
  int64_t messages = 0;  // of the conversation
  int64_t time = 0;
  std::string sender;
  std::string text;  // the beginning
};

// A code's name on a page; a value that is no code stands there as it is.
template <typename NameOf>
std::string html_code(const Code& code, const NameOf& name_of) {
  if (code.number) return name_of(*code.number);
  return "<bdi>" + (code.text.empty() ? "none" : html_line(code.text)) + "</bdi>";
}

// The file of a conversation's page, both counted from 1.
std::string html_file(std::size_t conversation, std::size_t page);

// Writes the pages of the conversation of that number to `folder`.
HtmlNewest write_conversation(const ExportSource& source, const HtmlConversation& conversation,
                              const std::string& folder, std::size_t number, ExportCounts& counts,
                              Progress& progress);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_CONVERSATION_H_
