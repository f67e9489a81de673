#include <utf8proc.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;

struct SearchOptions {
  std::string folder;
  std::string text;
  std::optional<std::string> session_id;
  std::vector<Corvan::SessionType> kinds;  // none: all
  bool ignore_case = false;
  std::optional<std::string> before;
  int32_t limit = 20;
  bool json = false;
};

// What texts are compared by when their letters' case does not matter: Unicode's case folding, and
// one form for each composed letter. Bytes that are no UTF-8 are all alike.
std::string folded(std::string_view text) {
  const std::string valid = valid_utf8(text);
  utf8proc_uint8_t* result = nullptr;
  const utf8proc_ssize_t size = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(valid.data()),
      static_cast<utf8proc_ssize_t>(valid.size()), &result,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
  const std::unique_ptr<utf8proc_uint8_t, void (*)(void*)> owner(result, std::free);
  if (size < 0) throw std::bad_alloc();
  return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(size)};
}

// The SQL function folded(TEXT).
void fold_value(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const unsigned char* const text = sqlite3_value_text(values[0]);
  if (text == nullptr) return;
  try {
    const std::string result = folded({reinterpret_cast<const char*>(text),
                                       static_cast<std::size_t>(sqlite3_value_bytes(values[0]))});
    sqlite3_result_text64(context, result.data(), result.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

// Where a page ends. What comes after it is older, or of the same time and with a smaller id.
struct Place {
  int64_t time = 0;
  int64_t id = 0;
};

std::string place_text(const MessageResponse& m) {
  return std::to_string(m.sent_time_) + ":" + std::to_string(m.msg_id_);
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
    const std::optional<Place> before = place_before();
    const Place place = before.value_or(Place());
    std::string sql = "select " + kMessageColumns + " from t_message where instr(" +
                      (options_.ignore_case ? "folded(content)" : "content") + ",?1)>0";
    if (before) sql += std::string(" and (") + kMessageTime + ",id)<(?2,?3)";
    if (options_.session_id) sql += " and session_id collate binary=?4";
    if (!options_.kinds.empty()) sql += " and session_type in(" + kinds() + ")";
    sql += std::string(" order by ") + kMessageTime + " desc,id desc limit ?5";
    store_.each_row(
        sql, [&found](sqlite3_stmt* row) { found.push_back(message_at(row)); },
        options_.ignore_case ? folded(options_.text) : options_.text, place.time, place.id,
        options_.session_id.value_or(""), int64_t{options_.limit} + 1);
    return found;
  }

 private:
  // --before: TIME:ID, or the id of a message, whose time is looked up.
  std::optional<Place> place_before() const {
    if (!options_.before) return std::nullopt;
    const std::string& text = *options_.before;
    const std::size_t colon = text.find(':');
    const bool has_time = colon != std::string::npos;
    const auto id = whole_number(has_time ? text.substr(colon + 1) : text);
    auto time = whole_number(text.substr(0, colon));
    if (!id || !time) {
      throw ToolError("--before: \"" + text + "\" is neither TIME:ID nor a message's id");
    }
    if (!has_time) time = time_of(*id);
    if (!time) {
      throw ToolError(store_.name() + ": no message " + text +
                      "; --before takes TIME:ID of a message that is gone");
    }
    return Place{*time, *id};
  }

  std::optional<int64_t> time_of(int64_t id) const {
    std::optional<int64_t> time;
    store_.each_row(
        std::string("select ") + kMessageTime + " from t_message where id=?",
        [&time](sqlite3_stmt* row) { time = sqlite3_column_int64(row, 0); }, id);
    return time;
  }

  std::string kinds() const {
    std::string list;
    for (const int32_t kind : options_.kinds) {
      list += (list.empty() ? "" : ",") + std::to_string(kind);
    }
    return list;
  }

  const SearchOptions& options_;
  const Snapshot store_;
  const StatementProgress progress_{store_.connection().handle(), "million steps of the search"};
};

// Where in `text` stands what its folded form has at `place`.
std::size_t unfolded_place(std::string_view text, std::size_t place) {
  std::string_view rest = text;
  for (std::size_t size = 0; !rest.empty();) {
    const std::string_view before = rest;
    size += folded(take_cluster(rest).text).size();
    if (size > place) return text.size() - before.size();
  }
  return text.size();
}

// The content from shortly before the first hit on, for a table that cuts what is too long.
std::string from_the_hit(const std::string& content, const SearchOptions& options) {
  constexpr std::size_t kBefore = 24;
  if (terminal_width() == 0) return content;
  std::size_t hit = content.find(options.text);
  if (options.ignore_case) {
    hit = unfolded_place(content, folded(content).find(folded(options.text)));
  }
  if (hit <= 2 * kBefore || hit >= content.size()) return content;
  std::size_t from = hit - kBefore;
  while (from > 0 && (content[from] & 0xc0) == 0x80) --from;
  return "…" + content.substr(from);
}

int run_search(const SearchOptions& options) {
  std::vector<MessageResponse> found = Search(options).run();
  const bool more = found.size() > static_cast<std::size_t>(options.limit);
  if (more) found.pop_back();

  if (options.json) {
    Json messages = Json::array();
    for (const MessageResponse& m : found) messages.push_back(message_json(m, true));
    print_json({{"messages", std::move(messages)},
                {"next_before", more ? Json(found.back().msg_id_) : Json(nullptr)},
                {"next_place", more ? Json(place_text(found.back())) : Json(nullptr)}});
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
    if (more) std::cout << "more: --before " << place_text(found.back()) << '\n';
  }
  if (!found.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

constexpr const char* kSearchResult =
    "TEXT is found as it stands, in any script, anywhere in a message's content; nothing in it has a\n"
    "special meaning. With --ignore-case upper and lower case letters, and composed and decomposed\n"
    "ones, are the same. Newest first; of equal times the larger id comes first.\n"
    "With --json: an object with messages, an array of objects with the keys of 'history';\n"
    "next_place, the TIME:ID to give with --before for the next page, and next_before, that\n"
    "message's id alone; both null after the last page.\n"
    "Exit status 1 when there are no such messages.\n";

}  // namespace

void add_search(CommandLine& line) {
  auto [command, options] = line.add<SearchOptions>(
      "search", "Find messages by a part of their text", kSearchResult, run_search);
  command.argument("TEXT", options.text, "what to look for");
  command.option("--session", "SESSION", options.session_id, "only in the conversation of this id");
  command.kinds(options.kinds, "only in conversations of this kind, may be given again: ");
  command.flag("--ignore-case", options.ignore_case, "let upper and lower case be the same");
  command.option("--before", "TIME:ID", options.before,
                 "the page that follows this message, given by its time and id or, while it is "
                 "there, by its id alone (default: from the newest on)");
  command.number("--limit", "N", options.limit, "at most so many (default 20)");
}

}  // namespace corvan_tool
