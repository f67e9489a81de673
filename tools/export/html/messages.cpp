#include "tools/export/html/messages.h"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/export/html/markup.h"
#include "tools/export/html/text.h"
#include "tools/export/html/times.h"
#include "tools/ui/names.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

constexpr int64_t kLongestPause = int64_t{5} * 60 * 1000;  // within a group, in milliseconds
constexpr std::size_t kLongestCard = 600;                  // longer content is folded, in bytes

// A message that is not a text: its kind, and its content as it is stored.
void append_card(const ShownMessage& m, std::string& html) {
  const std::string kind = html_line(m.object_name.empty() ? "no kind" : m.object_name);
  const auto out = std::back_inserter(html);
  if (m.content.empty()) {
    fmt::format_to(out, FMT_COMPILE(R"(<p class="kind"><bdi>{}</bdi></p>)"), kind);
    return;
  }
  const std::string body = fmt::format(
      FMT_COMPILE(R"(<div class="t raw" dir="auto" lang="">{}</div>)"), html_body(m.content));
  if (m.content.size() <= kLongestCard) {
    fmt::format_to(out, FMT_COMPILE(R"(<p class="kind"><bdi>{}</bdi></p>{})"), kind, body);
    return;
  }
  fmt::format_to(out,
                 FMT_COMPILE("<details><summary class=\"kind\"><bdi>{}</bdi>, "
                             "{}</summary>{}</details>"),
                 kind, size_text(static_cast<int64_t>(m.content.size())), body);
}

void append_content(const ShownMessage& m, std::string& html) {
  if (!m.is_text()) {
    append_card(m, html);
    return;
  }
  fmt::format_to(std::back_inserter(html),
                 FMT_COMPILE(R"(<div class="t" dir="auto" lang="">{}</div>)"),
                 html_body(m.content));
}

std::string state_element(const ShownMessage& m) {
  constexpr int32_t kFailed = 2;
  std::string state = m.is_own() ? html_code(m.sent_status, sent_status_name)
                                 : html_code(m.read_status, read_status_name);
  const bool has_failed = m.is_own() && m.sent_status.number == kFailed;
  if (!has_failed && !m.is_unread()) return state;
  return fmt::format(R"(<span class="{}">{}</span>)", has_failed ? "bad" : "unread", state);
}

// The line below the content: time, state, mention.
void append_meta(const ShownMessage& m, std::string& html) {
  fmt::format_to(std::back_inserter(html), FMT_COMPILE(R"(<p class="meta">{} · {}{}</p>)"),
                 time_element(m.time, kClock), state_element(m),
                 m.is_mention ? R"( · <span class="named">mentions you</span>)" : "");
}

void append_sender(const ShownMessage& m, std::string& html) {
  fmt::format_to(std::back_inserter(html), FMT_COMPILE(R"(<p class="who {}"><bdi>{}</bdi>{}</p>)"),
                 colour_class(m.sender), html_line(m.sender.empty() ? "no sender" : m.sender),
                 m.is_own() ? R"(<span class="vh"> (own)</span>)" : "");
}

void append_message(const ShownMessage& m, bool continues_group, std::string& html) {
  fmt::format_to(std::back_inserter(html), FMT_COMPILE(R"(<li id="i{}" class="{}{}{}">)"), m.id,
                 m.is_own() ? "own" : "in", continues_group ? " cont" : "",
                 m.is_mention ? " at" : "");
  if (!continues_group) append_sender(m, html);
  html += "<div class=\"b\">";
  append_content(m, html);
  append_meta(m, html);
  html += "</div></li>\n";
}

}  // namespace

const char* const kShownColumns =
    "id,object_name,content,sender,direction,sent_status,read_status,is_mention,sent_time";

void read_message(const Row& row, ShownMessage& message) {
  message.id = row.int64(0);
  message.object_name = row.text(1);
  message.content = row.text(2);
  message.sender = row.text(3);
  message.direction = code_at(row, 4);
  message.sent_status = code_at(row, 5);
  message.read_status = code_at(row, 6);
  message.is_mention = row.int64(7) != 0;
  message.time = row.int64(8);
}

void MessageList::add(const ShownMessage& message, std::string& html) {
  const bool is_new_day = begin_day(message.time, html);
  const bool is_first_new = begin_new_messages(message, html);
  append_message(message, !is_new_day && !is_first_new && continues_group(message), html);
  sender_ = message.sender;
  was_own_ = message.is_own();
  time_ = message.time;
}

void MessageList::end_page(std::string& html) {
  if (days_ > 0) html += "</ol></section>\n";
  days_ = 0;
}

// Begins a section unless the last message has the same day. Returns whether it did.
bool MessageList::begin_day(int64_t time, std::string& html) {
  std::string day = date_text(time);
  if (days_ > 0 && day == day_) return false;
  if (days_ > 0) html += "</ol></section>\n";
  day_ = std::move(day);
  ++days_;
  const std::optional<std::tm> date = calendar(time);
  const std::string heading =
      date ? fmt::format(R"(<time datetime="{}">{}</time>)", day_, formatted(*date, kDay))
           : "No date";
  fmt::format_to(std::back_inserter(html),
                 "<section aria-labelledby=\"d{0}\"{1}><h2 class=\"day\" id=\"d{0}\">{2}</h2>"
                 "<ol class=\"log\">\n",
                 days_, month_anchor(time), heading);
  return true;
}

// Marks the first unread message of the conversation. Returns whether `message` is that one.
bool MessageList::begin_new_messages(const ShownMessage& message, std::string& html) {
  if (has_marked_new_ || !message.is_unread()) return false;
  has_marked_new_ = true;
  html += "<li class=\"new\">New messages</li>\n";
  return true;
}

// The id of the first day of a month. Links to months use it.
std::string MessageList::month_anchor(int64_t time) {
  if (next_month_ == plan_.months.size() || plan_.months[next_month_].name != month_name(time)) {
    return "";
  }
  return fmt::format(" id=\"m{}\"", next_month_++);
}

bool MessageList::continues_group(const ShownMessage& message) const {
  const bool has_date = !day_.empty();  // both messages have one, or neither: the day is the same
  return message.sender == sender_ && message.is_own() == was_own_ && has_date &&
         message.time - time_ < kLongestPause;
}

}  // namespace corvan_tool
