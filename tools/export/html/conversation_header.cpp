#include <fmt/format.h>

#include "tools/export/html/conversation.h"
#include "tools/export/html/markup.h"
#include "tools/export/html/text.h"
#include "tools/export/html/times.h"
#include "tools/ui/names.h"

namespace corvan_tool {

namespace {

// The days of the first and the last message; one day if both are on it.
std::string period(const PagePlan& plan) {
  std::string first = time_element(plan.first_time, kDate);
  if (date_text(plan.first_time) == date_text(plan.last_time)) return first;
  return first + " to " + time_element(plan.last_time, kDate);
}

std::string facts(const HtmlConversation& c, const PagePlan& plan) {
  return fmt::format("<p class=\"facts\">{}{} · {}{}</p>\n", html_code(c.kind, kind_name),
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

// Links to the first day of each month: MessageList numbers the months in the same order.
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

}  // namespace

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

}  // namespace corvan_tool
