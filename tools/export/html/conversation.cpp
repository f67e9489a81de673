#include "tools/export/html/conversation.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/export/html/markup.h"
#include "tools/export/html/text.h"
#include "tools/ui/names.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

constexpr int64_t kMessagesOnAPage = 2000;
constexpr int64_t kOneBreath =
    int64_t{5} * 60 * 1000;                     // between messages that are shown as one group
constexpr std::size_t kLongCard = 600;          // bytes; a longer one is folded
constexpr const char* kTextKind = "CV:TxtMsg";  // the kind of message that is its text
constexpr const char* kOrder = " order by sent_time,id";

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
};

// A month that has messages, and the page that it begins on.
struct ShownMonth {
  std::string name;
  std::size_t page = 1;
  int64_t messages = 0;
};

// Which messages stand on which page: as many whole months as fit; a month that does not fit on a
// page of its own is split.
struct PagePlan {
  std::vector<ShownMonth> months;
  std::vector<int64_t> pages;  // the number of messages on each
  int64_t messages = 0;
  int64_t first_time = 0;
  int64_t last_time = 0;
};

std::string month_name(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  return date ? formatted(*date, kMonth) : "No date";
}

void add_month_to_pages(PagePlan& plan, ShownMonth& month) {
  if (plan.pages.back() > 0 && plan.pages.back() + month.messages > kMessagesOnAPage) {
    plan.pages.push_back(0);
  }
  month.page = plan.pages.size();
  int64_t rest = month.messages;
  while (rest > kMessagesOnAPage) {
    plan.pages.back() = kMessagesOnAPage;
    plan.pages.push_back(0);
    rest -= kMessagesOnAPage;
  }
  plan.pages.back() += rest;
}

PagePlan plan_of(const ExportSource& source, const HtmlConversation& conversation) {
  PagePlan plan;
  source.store().each_row("select sent_time " + conversation.messages + kOrder,
                          [&plan](const Row& row) {
                            const int64_t time = row.int64(0);
                            std::string name = month_name(time);
                            if (plan.months.empty() || plan.months.back().name != name) {
                              plan.months.push_back({std::move(name), 1, 0});
                            }
                            ++plan.months.back().messages;
                            if (plan.messages == 0) plan.first_time = time;
                            plan.last_time = time;
                            ++plan.messages;
                          });
  plan.pages.push_back(0);
  for (ShownMonth& month : plan.months) add_month_to_pages(plan, month);
  return plan;
}

std::string date_text(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  return date ? formatted(*date, kDate) : "";
}

std::string time_element(int64_t time, TimeForm form) {
  const std::optional<std::tm> date = calendar(time);
  if (!date) return "<span>no date (" + std::to_string(time) + ")</span>";
  return "<time datetime=\"" + formatted(*date, kInstant) + "\">" + formatted(*date, form) +
         "</time>";
}

std::string card(const ShownMessage& m) {
  const std::string label =
      "<bdi>" + html_line(m.object_name.empty() ? "no kind" : m.object_name) + "</bdi>";
  if (m.content.empty()) return "<p class=\"kind\">" + label + "</p>";
  const std::string body =
      R"(<div class="t raw" dir="auto" lang="">)" + html_body(m.content) + "</div>";
  if (m.content.size() <= kLongCard) return "<p class=\"kind\">" + label + "</p>" + body;
  const auto bytes = static_cast<int64_t>(m.content.size());
  return "<details><summary class=\"kind\">" + label + ", " + size_text(bytes) + "</summary>" +
         body + "</details>";
}

std::string meta(const ShownMessage& m) {
  std::string html = "<p class=\"meta\">" + time_element(m.time, kClock) + " · ";
  const std::string state = m.is_own() ? html_code(m.sent_status, sent_status_name)
                                       : html_code(m.read_status, read_status_name);
  if (m.is_own() && m.sent_status.number == 2) {
    html += "<span class=\"bad\">" + state + "</span>";
  } else if (m.is_unread()) {
    html += "<span class=\"unread\">" + state + "</span>";
  } else {
    html += state;
  }
  if (m.is_mention) html += " · <span class=\"named\">mentions you</span>";
  return html + "</p>";
}

// Writes the messages of a conversation in order, page by page.
class Pages {
 public:
  Pages(const HtmlConversation& conversation, std::string folder, std::size_t number, PagePlan plan,
        ExportCounts& counts)
      : conversation_(conversation),
        folder_(std::move(folder)),
        number_(number),
        plan_(std::move(plan)),
        counts_(counts) {
    begin_page();
    if (plan_.messages == 0) output_->write("<p class=\"none\">No messages</p>\n");
  }

  void add(const ShownMessage& m) {
    if (on_page_ == plan_.pages[page_ - 1] && page_ < plan_.pages.size()) {
      end_page();
      ++page_;
      begin_page();
    }
    ++on_page_;
    std::string html;
    const bool new_day = begin_day(m, html);
    const bool new_line = m.is_unread() && !told_new_;
    told_new_ = told_new_ || m.is_unread();
    if (new_line) html += "<li class=\"new\">New messages</li>\n";
    const bool goes_on = !new_day && !new_line && m.sender == sender_ && m.is_own() == was_own_ &&
                         !day_.empty() && m.time - time_ < kOneBreath;
    append_message(m, goes_on, html);
    output_->write(html);
    sender_ = m.sender;
    was_own_ = m.is_own();
    time_ = m.time;
  }

  void end() { end_page(); }

 private:
  void begin_page() {
    const std::string name = conversation_.name();
    const std::size_t pages = plan_.pages.size();
    output_ = std::make_unique<ExportOutput>(folder_ + "/" + html_file(number_, page_),
                                             ExportOutput::kNew, counts_);
    on_page_ = 0;
    days_ = 0;
    output_->write(
        page_begin(pages == 1 ? name : name + ", page " + std::to_string(page_)) +
        "<a class=\"skip\" href=\"#messages\">Skip to the messages</a>\n<header>\n"
        "<nav aria-label=\"Export\"><a href=\"../index.html\">All conversations</a></nav>\n"
        "<h1><bdi>" +
        html_line(name) + "</bdi></h1>\n" + facts() + chips() + draft() + jump() + "</header>\n" +
        links("Pages") + "<main id=\"messages\">\n");
  }

  void end_page() {
    if (days_ > 0) output_->write("</ol></section>\n");
    output_->write("</main>\n" + links("Pages, again") + page_end());
    output_->close();
  }

  std::string links(const char* name) const {
    return page_links(page_, plan_.pages.size(), {name, "← Older", "Newer →"},
                      [this](std::size_t page) { return html_file(number_, page); });
  }

  std::string facts() const {
    std::string html = "<p class=\"facts\">" + html_code(conversation_.kind, kind_name);
    if (!conversation_.title.empty()) html += " · <bdi>" + html_line(conversation_.id) + "</bdi>";
    html += " · " + counted(plan_.messages, "message");
    if (plan_.messages > 0) {
      const std::string first = time_element(plan_.first_time, kDate);
      const std::string last = time_element(plan_.last_time, kDate);
      const bool same_day = date_text(plan_.first_time) == date_text(plan_.last_time);
      html += " · " + first + (same_day ? "" : " to " + last);
    }
    return html + "</p>\n";
  }

  std::string chips() const {
    const HtmlConversation& c = conversation_;
    std::string html;
    const auto add = [&html](const std::string& more, const std::string& text) {
      html += "<span class=\"chip" + more + "\">" + text + "</span>";
    };
    if (c.is_top != 0) add("", "Pinned");
    if (c.silence != 0) add("", "Muted");
    if (c.unread != 0) add(" new", std::to_string(c.unread) + " unread");
    if (c.mentions != 0) add(" at", counted(c.mentions, "mention"));
    if (!c.has_row) add("", "Not in the list of conversations");
    return html.empty() ? "" : "<p class=\"chips\">" + html + "</p>\n";
  }

  std::string draft() const {
    if (conversation_.draft.empty()) return "";
    return R"(<div class="draft"><b>Draft</b><div class="t" dir="auto" lang="">)" +
           html_body(conversation_.draft) + "</div></div>\n";
  }

  // The link to a month's beginning leads to its page; months are told apart by their number.
  std::string jump() const {
    if (plan_.months.size() < 2) return "";
    std::string html =
        "<details class=\"jump\"><summary>Jump to a month</summary>\n<ol class=\"months\">";
    for (std::size_t i = 0; i < plan_.months.size(); ++i) {
      const ShownMonth& month = plan_.months[i];
      html += "<li><a href=\"" + html_file(number_, month.page) + "#m" + std::to_string(i) + "\">" +
              month.name + "</a> <span>" + std::to_string(month.messages) + "</span></li>\n";
    }
    return html + "</ol></details>\n";
  }

  // Begins a part of the page with the day of the message, unless it is that of the one before.
  bool begin_day(const ShownMessage& m, std::string& html) {
    const std::optional<std::tm> date = calendar(m.time);
    std::string day = date_text(m.time);
    if (days_ > 0 && day == day_) return false;
    if (days_ > 0) html += "</ol></section>\n";
    day_ = std::move(day);
    const std::string number = std::to_string(++days_);
    html += "<section aria-labelledby=\"d" + number + "\"" + month_anchor(m.time) +
            R"(><h2 class="day" id="d)" + number + R"(">)";
    html +=
        date ? "<time datetime=\"" + day_ + "\">" + formatted(*date, kDay) + "</time>" : "No date";
    html += "</h2><ol class=\"log\">\n";
    return true;
  }

  // The id of a month's first day.
  std::string month_anchor(int64_t time) {
    if (next_month_ == plan_.months.size() || plan_.months[next_month_].name != month_name(time)) {
      return "";
    }
    return " id=\"m" + std::to_string(next_month_++) + "\"";
  }

  static void append_message(const ShownMessage& m, bool goes_on, std::string& html) {
    html += std::string("<li id=\"i") + std::to_string(m.id) + "\" class=\"" +
            (m.is_own() ? "own" : "in") + (goes_on ? " cont" : "") + (m.is_mention ? " at" : "") +
            "\">";
    if (!goes_on) {
      html += "<p class=\"who " + colour_class(m.sender) + "\"><bdi>" +
              html_line(m.sender.empty() ? "no sender" : m.sender) + "</bdi>" +
              (m.is_own() ? "<span class=\"vh\"> (own)</span>" : "") + "</p>";
    }
    html += "<div class=\"b\">";
    html += m.object_name == kTextKind
                ? R"(<div class="t" dir="auto" lang="">)" + html_body(m.content) + "</div>"
                : card(m);
    html += meta(m) + "</div></li>\n";
  }

  const HtmlConversation& conversation_;
  const std::string folder_;
  const std::size_t number_;
  const PagePlan plan_;
  ExportCounts& counts_;
  std::unique_ptr<ExportOutput> output_;
  std::size_t page_ = 1;
  int64_t on_page_ = 0;  // messages
  std::size_t next_month_ = 0;
  int days_ = 0;  // on the page
  bool told_new_ = false;
  // Of the message before.
  std::string day_;  // empty: it has no date
  std::string sender_;
  bool was_own_ = false;
  int64_t time_ = 0;
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

std::string html_file(std::size_t conversation, std::size_t page) {
  std::array<char, 64> name = {};
  std::snprintf(name.data(), name.size(), page == 1 ? "%05zu.html" : "%05zu-%zu.html", conversation,
                page);
  return name.data();
}

HtmlNewest write_conversation(const ExportSource& source, const HtmlConversation& conversation,
                              const std::string& folder, std::size_t number, ExportCounts& counts,
                              Progress& progress) {
  HtmlNewest newest;
  Pages pages(conversation, folder, number, plan_of(source, conversation), counts);
  ShownMessage m;
  source.store().each_row(
      "select id,object_name,content,sender,direction,sent_status,read_status,is_mention,sent_time " +
          conversation.messages + kOrder,
      [&](const Row& row) {
        m.id = row.int64(0);
        m.object_name = row.text(1);
        m.content = row.text(2);
        m.sender = row.text(3);
        m.direction = code_at(row, 4);
        m.sent_status = code_at(row, 5);
        m.read_status = code_at(row, 6);
        m.is_mention = row.int64(7) != 0;
        m.time = row.int64(8);
        pages.add(m);
        ++newest.messages;
        progress.advance();
      });
  pages.end();
  counts.messages += newest.messages;
  newest.time = newest.messages > 0 ? m.time : conversation.time;
  newest.sender = m.sender;
  newest.text = m.object_name == kTextKind ? beginning(m.content) : m.object_name;
  return newest;
}

}  // namespace corvan_tool
