#include "tools/export/html/conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "tools/export/html/markup.h"
#include "tools/export/html/messages.h"
#include "tools/export/html/text.h"
#include "tools/export/html/times.h"
#include "tools/ui/names.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

// The days of the first and the last message; one day if both are on it.
std::string period(const PagePlan& plan) {
  std::string first = time_element(plan.first_time, kDate);
  if (date_text(plan.first_time) == date_text(plan.last_time)) return first;
  return first + " to " + time_element(plan.last_time, kDate);
}

std::string facts(const HtmlConversation& c, const PagePlan& plan) {
  return fmt::format("<p class=\"facts\">{}{} · {}{}</p>\n", html_code(c.type, type_name),
                     c.title.empty() ? "" : fmt::format(" · <bdi>{}</bdi>", html_line(c.id)),
                     counted(plan.messages, "message"),
                     plan.messages == 0 ? "" : " · " + period(plan));
}

std::string chip(const char* more_classes, const std::string& text) {
  return fmt::format(R"(<span class="chip{}">{}</span>)", more_classes, text);
}

std::string chips(const HtmlConversation& c) {
  std::string html;
  if (c.is_top != 0) html += chip("", "Pinned");
  if (c.silence != 0) html += chip("", "Muted");
  if (c.unread != 0) html += chip(" new", fmt::format("{} unread", c.unread));
  if (c.mentions != 0) html += chip(" at", counted(c.mentions, "mention"));
  if (!c.has_row) html += chip("", "Not in the list of conversations");
  return html.empty() ? "" : "<p class=\"chips\">" + html + "</p>\n";
}

std::string draft(const HtmlConversation& c) {
  if (c.draft.empty()) return "";
  return fmt::format(
      "<div class=\"draft\"><b>Draft</b><div class=\"t\" dir=\"auto\" lang=\"\">{}</div></div>\n",
      html_body(c.draft));
}

// Links to the first day of each month, whose anchors MessageList numbers in the same order.
std::string month_links(const PagePlan& plan, std::size_t number) {
  if (plan.months.size() < 2) return "";
  std::string links;
  for (std::size_t i = 0; i < plan.months.size(); ++i) {
    const PlannedMonth& month = plan.months[i];
    links += fmt::format("<li><a href=\"{}#m{}\">{}</a> <span>{}</span></li>\n",
                         page_file(number, month.page), i, month.name, month.messages);
  }
  return "<details class=\"jump\"><summary>Jump to a month</summary>\n<ol class=\"months\">" +
         links + "</ol></details>\n";
}

// The element <header> of each page, with name, settings, draft and links to months.
std::string conversation_header(const HtmlConversation& conversation, std::size_t number,
                                const PagePlan& plan) {
  return fmt::format(
      "<header>\n"
      "<nav aria-label=\"Export\"><a href=\"../index.html\">All conversations</a></nav>\n"
      "<h1><bdi>{}</bdi></h1>\n"
      "{}{}{}{}</header>\n",
      html_line(conversation.name()), facts(conversation, plan), chips(conversation),
      draft(conversation), month_links(plan, number));
}

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
