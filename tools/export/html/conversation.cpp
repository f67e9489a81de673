#include "tools/export/html/conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "tools/export/html/markup.h"
#include "tools/export/html/messages.h"
#include "tools/export/html/text.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

// Writes messages to the pages of a plan.
class ConversationPages {
 public:
  ConversationPages(const HtmlConversation& conversation, std::string folder, std::size_t number,
                    const PagePlan& plan, ExportCounts& counts)
      : conversation_(conversation),
        folder_(std::move(folder)),
        number_(number),
        plan_(plan),
        counts_(counts),
        list_(plan) {
    begin_page();
    if (plan_.messages == 0) output_->write("<p class=\"none\">No messages</p>\n");
  }

  void add(const ShownMessage& message) {
    if (on_page_ == plan_.pages[page_ - 1] && page_ < plan_.pages.size()) {
      end_page();
      ++page_;
      begin_page();
    }
    ++on_page_;
    html_.clear();
    list_.add(message, html_);
    output_->write(html_);
  }

  void end() { end_page(); }

 private:
  void begin_page() {
    output_ = std::make_unique<ExportOutput>(folder_ + "/" + page_file(number_, page_),
                                             ExportOutput::kNew, counts_);
    on_page_ = 0;
    output_->write(fmt::format(
        "{}<a class=\"skip\" href=\"#messages\">Skip to the messages</a>\n{}{}<main "
        "id=\"messages\">\n",
        page_begin(title()), conversation_header(conversation_, number_, plan_), links("Pages")));
  }

  void end_page() {
    html_.clear();
    list_.end_page(html_);
    output_->write(fmt::format("{}</main>\n{}{}", html_, links("Pages, again"), page_end()));
    output_->close();
  }

  std::string title() const {
    const std::string name = conversation_.name();
    return plan_.pages.size() == 1 ? name : fmt::format("{}, page {}", name, page_);
  }

  std::string links(const char* name) const {
    return page_links(page_, plan_.pages.size(), {name, "← Older", "Newer →"},
                      [this](std::size_t page) { return page_file(number_, page); });
  }

  const HtmlConversation& conversation_;
  const std::string folder_;
  const std::size_t number_;
  const PagePlan& plan_;
  ExportCounts& counts_;
  MessageList list_;
  std::unique_ptr<ExportOutput> output_;
  std::size_t page_ = 1;
  int64_t on_page_ = 0;  // messages
  std::string html_;     // keeps its memory from message to message
};

// The beginning of a text, on one line.
std::string beginning(const std::string& text) {
  constexpr std::size_t kBytes = 600;
  constexpr int kWidth = 120;
  std::string result = text.substr(0, kBytes);
  for (std::size_t i = 0; i + 1 < result.size(); ++i) {
    if (result[i] == '\r' && result[i + 1] == '\n') result.erase(i, 1);
  }
  std::replace_if(
      result.begin(), result.end(), [](char c) { return c == '\n' || c == '\t'; }, ' ');
  return clipped(one_line(result), kWidth);
}

}  // namespace

std::string HtmlConversation::name() const {
  if (!title.empty()) return title;
  return id.empty() ? "no id" : id;
}

std::string page_file(std::size_t conversation, std::size_t page) {
  return page == 1 ? fmt::format("{:05}.html", conversation)
                   : fmt::format("{:05}-{}.html", conversation, page);
}

HtmlNewest write_conversation(const ExportSource& source, const HtmlConversation& conversation,
                              const std::string& folder, std::size_t number, ExportCounts& counts,
                              Progress& progress) {
  const PagePlan plan = plan_pages(source, conversation.messages);
  ConversationPages pages(conversation, folder, number, plan, counts);
  HtmlNewest newest;
  ShownMessage m;
  source.store().each_row(
      fmt::format("select {} {}{}", kShownColumns, conversation.messages, kMessageOrder),
      [&](const Row& row) {
        read_message(row, m);
        pages.add(m);
        ++newest.messages;
        progress.advance();
      });
  pages.end();
  counts.messages += newest.messages;
  newest.time = newest.messages > 0 ? m.time : conversation.time;
  newest.sender = m.sender;
  newest.text = m.is_text() ? beginning(m.content) : m.object_name;
  return newest;
}

}  // namespace corvan_tool
