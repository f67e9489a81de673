#include "tools/search.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/command_line.h"
#include "tools/copied_store.h"
#include "tools/json_output.h"
#include "tools/message_output.h"
#include "tools/names.h"
#include "tools/progress.h"
#include "tools/text_table.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;

struct SearchOptions {
  std::string folder;
  std::string text;
  std::optional<std::string> session_id;
  std::vector<Corvan::SessionType> kinds;  // none: all
  bool ignore_case = false;
  int64_t before = 0;  // a message's id; 0 for none
  int32_t limit = 20;
  bool json = false;
};

// What texts are compared by when their letters' case does not matter: Unicode's case folding, and
// one form for each composed letter. Of text that is not UTF-8 only the ASCII letters are folded.
std::string folded(std::string_view text) {
  utf8proc_uint8_t* result = nullptr;
  const utf8proc_ssize_t size = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
      static_cast<utf8proc_ssize_t>(text.size()), &result,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
  const std::unique_ptr<utf8proc_uint8_t, void (*)(void*)> owner(result, std::free);
  if (size < 0) return lower_case(std::string(text));
  return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(size)};
}

// The SQL function folded(TEXT).
void fold_value(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const unsigned char* const text = sqlite3_value_text(values[0]);
  if (text == nullptr) return;
  const std::string result = folded({reinterpret_cast<const char*>(text),
                                     static_cast<std::size_t>(sqlite3_value_bytes(values[0]))});
  sqlite3_result_text64(context, result.data(), result.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

class Search {
 public:
  explicit Search(const SearchOptions& options) : options_(options), store_(options.folder) {
    if (options.ignore_case &&
        sqlite3_create_function_v2(store_.connection().handle(), "folded", 1,
                                   SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, fold_value, nullptr,
                                   nullptr, nullptr) != SQLITE_OK) {
      throw ToolError(store_.name() + ": " + store_.connection().error());
    }
  }

  // At most limit + 1 messages, newest first: the last one tells that there are more.
  std::vector<MessageResponse> run() const {
    std::vector<MessageResponse> found;
    int64_t before_time = std::numeric_limits<int64_t>::max();
    int64_t before_id = std::numeric_limits<int64_t>::max();
    if (options_.before != 0) {
      before_time = time_of(options_.before);
      before_id = options_.before;
    }
    const std::string needle = options_.ignore_case ? folded(options_.text) : options_.text;
    const auto read = [&found](sqlite3_stmt* row) {
      MessageResponse m;
      m.msg_id_ = sqlite3_column_int64(row, 0);
      m.session_id_ = text_at(row, 1);
      m.session_type_ = Corvan::SessionType(sqlite3_column_int(row, 2));
      m.object_name_ = text_at(row, 3);
      m.sender_ = text_at(row, 4);
      m.content_ = text_at(row, 5);
      m.is_receive_ = sqlite3_column_int(row, 6) != 0;
      m.read_status_ = sqlite3_column_int(row, 7);
      m.sent_status_ = sqlite3_column_int(row, 8);
      m.server_uid_ = text_at(row, 9);
      m.sent_time_ = sqlite3_column_int64(row, 10);
      found.push_back(std::move(m));
    };
    const int64_t rows = int64_t{options_.limit} + 1;
    if (options_.session_id) {
      store_.each_row(statement(), read, needle, before_time, before_id, rows,
                      *options_.session_id);
    } else {
      store_.each_row(statement(), read, needle, before_time, before_id, rows);
    }
    return found;
  }

 private:
  int64_t time_of(int64_t id) const {
    std::optional<int64_t> time;
    store_.each_row(
        "select sent_time from t_message where id=?",
        [&time](sqlite3_stmt* row) { time = sqlite3_column_int64(row, 0); }, id);
    if (!time) {
      throw ToolError(store_.name() + ": no message " + std::to_string(id) +
                      "; --before takes the id of the last message shown");
    }
    return *time;
  }

  std::string statement() const {
    std::string sql =
        "select id,session_id,session_type,object_name,sender,content,direction,read_status,"
        "sent_status,server_uid,sent_time from t_message "
        "where instr(" +
        std::string(options_.ignore_case ? "folded(content)" : "content") +
        ",?1)>0 and (sent_time<?2 or (sent_time=?2 and id<?3)) ";
    if (options_.session_id) sql += "and session_id=?5 ";
    if (!options_.kinds.empty()) {
      std::string list;
      for (const int32_t kind : options_.kinds)
        list += (list.empty() ? "" : ",") + std::to_string(kind);
      sql += "and session_type in(" + list + ") ";
    }
    return sql + "order by sent_time desc,id desc limit ?4";
  }

  const SearchOptions& options_;
  const CopiedStore store_;
  const StatementProgress progress_{store_.connection().handle(), "million steps of the search"};
};

// The content from shortly before the first hit on, for a table that cuts what is too long.
std::string from_the_hit(const std::string& content, const SearchOptions& options) {
  constexpr std::size_t kBefore = 24;
  const std::size_t hit =
      options.ignore_case ? folded(content).find(folded(options.text)) : content.find(options.text);
  if (hit == std::string::npos || hit <= 2 * kBefore || terminal_width() == 0) return content;
  std::size_t from = hit - kBefore;
  while (from > 0 && from < content.size() && (content[from] & 0xc0) == 0x80) --from;
  return "…" + content.substr(std::min(from, content.size()));
}

int run_search(const SearchOptions& options) {
  std::vector<MessageResponse> found = Search(options).run();
  const bool more = found.size() > static_cast<std::size_t>(options.limit);
  if (more) found.pop_back();

  if (options.json) {
    Json messages = Json::array();
    for (const MessageResponse& m : found) messages.push_back(message_json(m, true));
    print_json({{"messages", std::move(messages)},
                {"next_before", more ? Json(found.back().msg_id_) : Json(nullptr)}});
  } else if (!found.empty()) {
    TextTable table({{"ID", TextTable::kRight},
                     {"TIME (UTC)"},
                     {"KIND"},
                     {"SESSION"},
                     {"SENDER"},
                     {"CONTENT"}});
    for (const MessageResponse& m : found) {
      table.add({std::to_string(m.msg_id_), time_text(m.sent_time_), kind_name(m.session_type_),
                 m.session_id_, m.sender_, from_the_hit(m.content_, options)});
    }
    table.print(std::cout, terminal_width());
    if (more) std::cout << "more: --before " << found.back().msg_id_ << '\n';
  }
  if (!found.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

constexpr const char* kSearchResult =
    "TEXT is found as it stands, in any script, anywhere in a message's content; nothing in it has a\n"
    "special meaning. With --ignore-case upper and lower case letters, and composed and decomposed\n"
    "ones, are the same. Newest first; of equal times the larger id comes first.\n"
    "With --json: an object with messages, an array of objects with the keys of 'history', and\n"
    "next_before, the id to give with --before for the next page, or null after the last one.\n"
    "Exit status 1 when there are no such messages.\n";

}  // namespace

void add_search(CommandLine& line) {
  auto [command, options] = line.add<SearchOptions>(
      "search", "Find messages by a part of their text", kSearchResult, run_search);
  command.argument("TEXT", options.text, "what to look for");
  command.option("--session", "SESSION", options.session_id, "only in the conversation of this id");
  command.kinds(options.kinds, "only in conversations of this kind, may be given again: ");
  command.flag("--ignore-case", options.ignore_case, "let upper and lower case be the same");
  command.number("--before", "ID", options.before,
                 "the page that follows this message (default: from the newest on)");
  command.number("--limit", "N", options.limit, "at most so many (default 20)");
}

}  // namespace corvan_tool
