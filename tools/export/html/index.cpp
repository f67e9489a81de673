#include "tools/export/html/index.h"

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
#include "tools/ui/names.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kConversationsOnAPage = 1000;

// A row that has a conversation's id and kind, whatever they are.
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
  return page == 1 ? "index.html" : "index-" + std::to_string(page) + ".html";
}

// The list's order; messages without a conversation come last.
std::vector<ConversationRow> conversations_of(const ExportSource& source, const RowIdNames& names) {
  std::vector<ConversationRow> places;
  const auto read_into = [&places](const char* table) {
    return [&places, table](const Row& row) { places.push_back({table, row.int64(0)}); };
  };
  source.store().each_row(
      "select " + names.session + " from t_session where " + source.condition() +
          " order by is_top desc,session_time desc,session_type desc," + names.session + " desc",
      read_into("t_session"));
  source.require_all("t_session", static_cast<int64_t>(places.size()), source.rows_of("t_session"));
  source.store().each_row(
      "select min(" + names.message + ") from t_message m where " + source.condition() +
          " group by session_type,session_id collate binary having not exists("
          "select 1 from t_session s"
          " where s.session_id collate binary is m.session_id and s.session_type is m.session_type)",
      read_into("t_message"));
  return places;
}

HtmlConversation read_conversation(const ExportSource& source, const ConversationRow& place,
                                   const RowIdNames& names) {
  HtmlConversation c;
  c.has_row = std::string(place.table) == "t_session";
  const std::string row = std::string(" from ") + place.table + " where " +
                          (c.has_row ? names.session : names.message) + "=" +
                          std::to_string(place.row_id);
  c.messages = "from t_message where session_id collate binary is (select session_id" + row +
               ") and session_type is (select session_type" + row + ")";
  const std::string more =
      c.has_row ? ",title,draft,is_top,silence,unread_count,mention_count,session_time" : "";
  source.store().each_row("select session_id,session_type" + more + row, [&c](const Row& values) {
    c.id = values.text(0);
    c.kind = code_at(values, 1);
    if (!c.has_row) return;
    c.title = values.text(2);
    c.draft = values.text(3);
    c.is_top = values.int64(4);
    c.silence = values.int64(5);
    c.unread = values.int64(6);
    c.mentions = values.int64(7);
    c.time = values.int64(8);
  });
  return c;
}

std::string date_of(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  if (!date) return "<span class=\"when\"></span>";
  return R"(<time class="when" datetime=")" + formatted(*date, kInstant) + R"(">)" +
         formatted(*date, kDate) + "</time>";
}

std::string tags_of(const HtmlConversation& c) {
  std::string html = "<span class=\"tags\">";
  const auto count = [&html](const std::string& more, int64_t number, const std::string& what) {
    if (number == 0) return;
    html += "<span class=\"count" + more + "\">" + (more == " at" ? "@" : "") +
            std::to_string(number) + "<span class=\"vh\"> " + what + "</span></span>";
  };
  if (c.is_top != 0) html += "<span class=\"tag\">pinned</span>";
  if (c.silence != 0) html += "<span class=\"tag\">muted</span>";
  if (!c.draft.empty()) html += "<span class=\"tag\">draft</span>";
  count(" at", c.mentions, "mentions");
  count(c.silence != 0 ? " mute" : "", c.unread, "unread");
  return html + "</span>";
}

std::string entry(const HtmlConversation& c, const HtmlNewest& newest, std::size_t number) {
  const std::string name = c.name();
  std::string html = "<li><a href=\"pages/" + html_file(number, 1) + "\"><span class=\"sign " +
                     colour_class(c.id) + R"(" aria-hidden="true">)" + html_initial(name) +
                     R"(</span><span class="name" dir="auto">)" + html_line(name) + "</span>" +
                     date_of(newest.time) + R"(<span class="last" dir="auto">)";
  if (newest.messages == 0) {
    html += html_code(c.kind, kind_name) + ", no messages";
  } else {
    html +=
        "<bdi>" + html_line(newest.sender) + "</bdi>: <bdi>" + html_line(newest.text) + "</bdi>";
  }
  return html + "</span>" + tags_of(c) + "</a></li>\n";
}

// The list of conversations, which grows while their pages are written.
class IndexPage {
 public:
  IndexPage(const ExportSource& source, std::string folder, std::size_t conversations,
            int64_t messages, ExportCounts& counts)
      : folder_(std::move(folder)),
        pages_((conversations + kConversationsOnAPage - 1) / kConversationsOnAPage),
        facts_(counted(static_cast<int64_t>(conversations), "conversation") + " · " +
               counted(messages, "message")),
        counts_(counts) {
    // Not sum(), which fails where a damaged store's counters overflow.
    const std::string of_sessions = " from t_session where " + source.condition();
    const int64_t unread = source.number("select total(unread_count)" + of_sessions);
    const int64_t mentions = source.number("select total(mention_count)" + of_sessions);
    if (unread != 0) facts_ += " · " + std::to_string(unread) + " unread";
    if (mentions != 0) facts_ += " · " + counted(mentions, "mention");
    if (source.is_partial()) facts_ += " · chosen conversations only";
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
    output_->write(page_begin("Conversations") + "<header>\n<h1>Conversations</h1>\n" +
                   "<p class=\"facts\">" + facts_ + "</p>\n</header>\n" + links("Pages") +
                   "<main>\n");
  }

  void end_page() {
    output_->write(on_page_ > 0 ? "</ol>\n" : "<p class=\"none\">No conversations</p>\n");
    output_->write("</main>\n" + links("Pages, again") + page_end());
    output_->close();
  }

  std::string links(const char* name) const {
    return page_links(page_, pages_, {name, "← Before", "After →"}, index_file);
  }

  const std::string folder_;
  const std::size_t pages_;
  std::string facts_;
  ExportCounts& counts_;
  std::unique_ptr<ExportOutput> output_;
  std::size_t page_ = 1;
  std::size_t on_page_ = 0;
};

}  // namespace

void export_html(const ExportSource& source, const std::string& folder, ExportCounts& counts) {
  const std::string pages = folder + "/pages";
  std::error_code error;
  if (!std::filesystem::create_directory(pages, error)) fail_to_write(pages, error.message());
  const RowIdNames names = {source.row_id("t_session"), source.row_id("t_message")};
  const std::vector<ConversationRow> places = conversations_of(source, names);
  const int64_t all = source.rows_of("t_message");
  Progress progress("messages", static_cast<std::uint64_t>(all));
  IndexPage index(source, folder, places.size(), all, counts);
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
