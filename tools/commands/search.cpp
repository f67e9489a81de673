#include <fmt/format.h>
#include <utf8proc.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/time.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;

struct SearchOptions {
  std::string folder;
  std::string text;
  std::optional<std::string> session_id;
  std::vector<Corvan::SessionType> types;  // empty: all
  bool ignore_case = false;
  std::optional<std::string> before;
  int32_t limit = 20;
  bool json = false;
};

// `text` in the form by which texts are compared regardless of letter case: with Unicode case
// folding, composed letters in one form, and U+FFFD for bytes that are not UTF-8.
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

// The last message of a page. The next page continues with older messages, and with those of the
// same time that have smaller ids.
struct Place {
  int64_t time = 0;
  int64_t id = 0;
};

std::string place_text(const MessageResponse& m) {
  return fmt::format("{}:{}", m.sent_time_, m.msg_id_);
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

  // The newest messages first, and one more than the limit if there are more.
  std::vector<MessageResponse> run() const {
    const std::optional<Place> before = place_before();
    const Place place = before.value_or(Place());
    std::vector<MessageResponse> found;
    store_.each_row(
        query(), [&found](const Row& row) { found.push_back(message_at(row)); },
        options_.ignore_case ? folded(options_.text) : options_.text, place.time, place.id,
        options_.session_id.value_or(""), int64_t{options_.limit} + 1);
    return found;
  }

 private:
  // ?1 is the text, ?2 and ?3 the place of --before, ?4 the conversation, ?5 the limit.
  std::string query() const {
    std::string sql = fmt::format("select {} from t_message where instr({},?1)>0", kMessageColumns,
                                  options_.ignore_case ? "folded(content)" : "content");
    if (options_.before) sql += fmt::format(" and ({},id)<(?2,?3)", kMessageTime);
    if (options_.session_id) sql += " and session_id collate binary=?4";
    if (!options_.types.empty()) {
      sql += fmt::format(" and session_type in({})", listed_types(options_.types));
    }
    return sql + fmt::format(" order by {} desc,id desc limit ?5", kMessageTime);
  }

  // --before is TIME:ID, or an id alone, whose time is looked up.
  std::optional<Place> place_before() const {
    if (!options_.before) return std::nullopt;
    const std::string& text = *options_.before;
    const std::size_t colon = text.find(':');
    const bool has_time = colon != std::string::npos;
    const auto id = whole_number(has_time ? text.substr(colon + 1) : text);
    auto time = whole_number(text.substr(0, colon));
    if (!id || !time) {
      throw ToolError(fmt::format("--before: \"{}\" is neither TIME:ID nor a message's id", text));
    }
    if (!has_time) time = time_of(*id);
    if (!time) {
      throw ToolError(store_.name() + ": no message " + text +
                      "; if the message is gone, give its TIME:ID to --before");
    }
    return Place{*time, *id};
  }

  std::optional<int64_t> time_of(int64_t id) const {
    std::optional<int64_t> time;
    store_.each_row(
        fmt::format("select {} from t_message where id=?", kMessageTime),
        [&time](const Row& row) { time = row.int64(0); }, id);
    return time;
  }

  const SearchOptions& options_;
  const Snapshot store_;
  const StatementProgress progress_{store_.connection().handle(), "million steps of the search"};
};

// Converts a position in the folded form of `text` to the position in `text`.
std::size_t unfolded_place(std::string_view text, std::size_t place) {
  std::string_view rest = text;
  for (std::size_t size = 0; !rest.empty();) {
    const std::string_view before = rest;
    size += folded(take_cluster(rest).text).size();
    if (size > place) return text.size() - before.size();
  }
  return text.size();
}

// Begins the content shortly before the first hit if the table clips it, so that the hit is shown.
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

void print_found_json(const std::vector<MessageResponse>& found, bool has_more) {
  Json messages = Json::array();
  for (const MessageResponse& m : found) messages.push_back(message_json(m, true));
  print_json({{"messages", std::move(messages)},
              {"next_place", has_more ? Json(place_text(found.back())) : Json(nullptr)}});
}

void print_found(const std::vector<MessageResponse>& found, const SearchOptions& options) {
  TextTable table(
      {{"ID", TextTable::kRight}, {"TIME (UTC)"}, {"TYPE"}, {"SESSION"}, {"SENDER"}, {"CONTENT"}});
  for (const MessageResponse& m : found) {
    table.add({std::to_string(m.msg_id_), time_text(m.sent_time_), type_name(m.session_type_),
               m.session_id_, m.sender_, from_the_hit(m.content_, options)});
  }
  table.print(std::cout, terminal_width());
}

int run_search(const SearchOptions& options) {
  std::vector<MessageResponse> found = Search(options).run();
  const bool has_more = found.size() > static_cast<std::size_t>(options.limit);
  if (has_more) found.pop_back();
  if (options.json) {
    print_found_json(found, has_more);
  } else if (!found.empty()) {
    print_found(found, options);
    if (has_more) std::cout << "more: --before " << place_text(found.back()) << '\n';
  }
  if (!found.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

constexpr const char* kSearchResult =
    "TEXT is searched literally, in any script, anywhere in a message's content. With --ignore-case,\n"
    "upper and lower case letters are equal, and so are composed and decomposed ones. The newest\n"
    "message comes first; among messages of the same time, the one with the larger id.\n"
    "With --json: an object with messages, an array of objects with the keys of 'history'; and\n"
    "next_place, the TIME:ID to give with --before for the next page, null if there is none.\n"
    "Exit status 1 if there are no such messages.\n";

}  // namespace

void add_search(CommandLine& line) {
  auto [command, options] = line.add<SearchOptions>(
      "search", "Find messages by a part of their text", kSearchResult, run_search);
  command.argument("TEXT", options.text, "the text to search for");
  command.option("--session", "SESSION", options.session_id,
                 "only in the conversation with this id");
  command.types(options.types, "only in conversations of this type; may be repeated: ");
  command.flag("--ignore-case", options.ignore_case, "ignore letter case");
  command.option("--before", "TIME:ID", options.before,
                 "the page after this message, given by its time and id, or by its id alone while "
                 "it exists (default: the newest messages)");
  command.number("--limit", "N", options.limit, "at most N messages (default 20)");
}

}  // namespace corvan_tool
