#include "tools/export/html/index.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/export/html/conversation.h"
#include "tools/export/html/markup.h"
#include "tools/export/html/text.h"
#include "tools/export/html/times.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kConversationsOnAPage = 1000;

// The row that has the id and the type of a conversation.
struct ConversationRow {
  const char* table;  // t_session, or t_message for messages whose conversation has no row
  int64_t row_id;
};

// The names of the row ids in SQL.
struct RowIdNames {
  std::string session;
  std::string message;
};

std::string index_file(std::size_t page) {
  return page == 1 ? "index.html" : fmt::format("index-{}.html", page);
}

void add_rows(const ExportSource& source, const std::string& sql, const char* table,
              std::vector<ConversationRow>& places) {
  source.store().each_row(sql, [&places, table](const Row& row) {
    places.push_back({table, row.int64(0)});
  });
}

// In the order of the conversation list. Conversations without a row come last.
std::vector<ConversationRow> conversations_of(const ExportSource& source, const RowIdNames& names) {
  std::vector<ConversationRow> places;
  add_rows(source,
           fmt::format("select {0} from t_session where {1} "
                       "order by is_top desc,session_time desc,session_type desc,{0} desc",
                       names.session, source.condition()),
           "t_session", places);
  source.require_all("t_session", static_cast<int64_t>(places.size()), source.rows_of("t_session"));
  add_rows(
      source,
      fmt::format("select min({}) from t_message m where {} "
                  "group by session_type,session_id collate binary having not exists("
                  "select 1 from t_session s where s.session_id collate binary is m.session_id "
                  "and s.session_type is m.session_type)",
                  names.message, source.condition()),
      "t_message", places);
  return places;
}

void read_settings(const Row& row, HtmlConversation& c) {
  c.title = row.text(2);
  c.draft = row.text(3);
  c.is_top = row.int64(4);
  c.silence = row.int64(5);
  c.unread = row.int64(6);
  c.mentions = row.int64(7);
  c.time = row.int64(8);
}

HtmlConversation read_conversation(const ExportSource& source, const ConversationRow& place,
                                   const RowIdNames& names) {
  HtmlConversation c;
  c.has_row = std::string(place.table) == "t_session";
  const std::string from = fmt::format("from {} where {}={}", place.table,
                                       c.has_row ? names.session : names.message, place.row_id);
  c.messages = fmt::format(
      "from t_message where session_id collate binary is (select session_id {0}) "
      "and session_type is (select session_type {0})",
      from);
  const char* const settings =
      c.has_row ? ",title,draft,is_top,silence,unread_count,mention_count,session_time" : "";
  source.store().each_row(fmt::format("select session_id,session_type{} {}", settings, from),
                          [&c](const Row& row) {
                            c.id = row.text(0);
                            c.type = code_at(row, 1);
                            if (c.has_row) read_settings(row, c);
                          });
  return c;
}

std::string when_element(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  if (!date) return "<span class=\"when\"></span>";
  return fmt::format(R"(<time class="when" datetime="{}">{}</time>)", formatted(*date, kInstant),
                     formatted(*date, kDate));
}

std::string counter(const char* more_classes, const char* sign, int64_t number, const char* what) {
  if (number == 0) return "";
  return fmt::format(R"(<span class="count{}">{}{}<span class="vh"> {}</span></span>)",
                     more_classes, sign, number, what);
}

std::string tags_of(const HtmlConversation& c) {
  std::string html = "<span class=\"tags\">";
  if (c.is_top != 0) html += "<span class=\"tag\">pinned</span>";
  if (c.silence != 0) html += "<span class=\"tag\">muted</span>";
  if (!c.draft.empty()) html += "<span class=\"tag\">draft</span>";
  html += counter(" at", "@", c.mentions, "mentions");
  html += counter(c.silence != 0 ? " mute" : "", "", c.unread, "unread");
  return html + "</span>";
}

std::string newest_text(const HtmlConversation& c, const HtmlNewest& newest) {
  if (newest.messages == 0) return html_code(c.type, type_name) + ", no messages";
  return fmt::format("<bdi>{}</bdi>: <bdi>{}</bdi>", html_line(newest.sender),
                     html_line(newest.text));
}

std::string entry(const HtmlConversation& c, const HtmlNewest& newest, std::size_t number) {
  const std::string name = c.name();
  return fmt::format(
      "<li><a href=\"pages/{}\">"
      "<span class=\"sign {}\" aria-hidden=\"true\">{}</span>"
      "<span class=\"name\" dir=\"auto\">{}</span>{}"
      "<span class=\"last\" dir=\"auto\">{}</span>{}</a></li>\n",
      page_file(number, 1), colour_class(c.id), html_initial(name), html_line(name),
      when_element(newest.time), newest_text(c, newest), tags_of(c));
}

// The line below the heading: what the export contains.
std::string facts_of(const ExportSource& source, std::size_t conversations, int64_t messages) {
  std::string facts = counted(static_cast<int64_t>(conversations), "conversation") + " · " +
                      counted(messages, "message");
  // total() rather than sum(): sum() fails if the counters of a damaged store overflow.
  const std::string from = " from t_session where " + source.condition();
  const int64_t unread = source.number("select total(unread_count)" + from);
  const int64_t mentions = source.number("select total(mention_count)" + from);
  if (unread != 0) facts += fmt::format(" · {} unread", unread);
  if (mentions != 0) facts += " · " + counted(mentions, "mention");
  if (source.is_partial()) facts += " · chosen conversations only";
  return facts;
}

// Writes the list of conversations to as many pages as it needs.
class IndexPages {
 public:
  IndexPages(std::string folder, std::size_t conversations, std::string facts, ExportCounts& counts)
      : folder_(std::move(folder)),
        pages_((conversations + kConversationsOnAPage - 1) / kConversationsOnAPage),
        facts_(std::move(facts)),
        counts_(counts) {
    begin_page();
  }

  void add(const std::string& html) {
    if (on_page_ == kConversationsOnAPage) {
      end_page();
      ++page_;
      begin_page();
    }
    if (on_page_++ == 0) output_->write("<ol class=\"list\">\n");
    output_->write(html);
  }

  void end() { end_page(); }

 private:
  void begin_page() {
    output_ = std::make_unique<ExportOutput>(folder_ + "/" + index_file(page_), ExportOutput::kNew,
                                             counts_);
    on_page_ = 0;
    output_->write(
        fmt::format("{}<header>\n<h1>Conversations</h1>\n"
                    "<p class=\"facts\">{}</p>\n</header>\n{}<main>\n",
                    page_begin("Conversations"), facts_, links("Pages")));
  }

  void end_page() {
    output_->write(on_page_ > 0 ? "</ol>\n" : "<p class=\"none\">No conversations</p>\n");
    output_->write(fmt::format("</main>\n{}{}", links("Pages, again"), page_end()));
    output_->close();
  }

  std::string links(const char* name) const {
    return page_links(page_, pages_, {name, "← Before", "After →"}, index_file);
  }

  const std::string folder_;
  const std::size_t pages_;
  const std::string facts_;
  ExportCounts& counts_;
  std::unique_ptr<ExportOutput> output_;
  std::size_t page_ = 1;
  std::size_t on_page_ = 0;  // conversations
};

}  // namespace

void export_html(const ExportSource& source, const std::string& folder, ExportCounts& counts) {
  const std::string pages = folder + "/pages";
  std::error_code error;
  if (!std::filesystem::create_directory(std::filesystem::u8path(pages), error))
    fail_to_write(pages, error.message());
  const RowIdNames names = {source.row_id("t_session"), source.row_id("t_message")};
  const std::vector<ConversationRow> places = conversations_of(source, names);
  const int64_t all = source.rows_of("t_message");
  Progress progress("messages", static_cast<std::uint64_t>(all));
  IndexPages index(folder, places.size(), facts_of(source, places.size(), all), counts);
  for (std::size_t number = 1; number <= places.size(); ++number) {
    const HtmlConversation conversation = read_conversation(source, places[number - 1], names);
    const HtmlNewest newest =
        write_conversation(source, conversation, pages, number, counts, progress);
    index.add(entry(conversation, newest, number));
  }
  index.end();
  source.require_all("t_message", counts.messages, all);
  counts.sessions = static_cast<int64_t>(places.size());
}

}  // namespace corvan_tool
