#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "addons/search/message_search.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/search/criteria.h"
#include "tools/search/index_copy.h"
#include "tools/search/literal_search.h"
#include "tools/search/word_search.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/time.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;
using Corvan::SearchPlace;

struct SearchOptions {
  std::string folder;
  std::string text;
  std::optional<std::string> session_id;
  std::vector<Corvan::SessionType> types;  // empty: all
  bool literal = false;
  bool ignore_case = false;
  bool no_index = false;
  std::optional<std::string> before;
  int32_t limit = 20;
  bool json = false;
};

std::string place_text(const MessageResponse& m) {
  return fmt::format("{}:{}", m.sent_time_, m.msg_id_);
}

std::optional<int64_t> time_of(const Snapshot& store, int64_t id) {
  std::optional<int64_t> time;
  store.each_row(
      fmt::format("select {} from t_message where id=?", kMessageTime),
      [&time](const Row& row) { time = row.int64(0); }, id);
  return time;
}

// --before is TIME:ID, or an id alone, whose time is looked up.
SearchPlace place_before(const Snapshot& store, const std::string& text) {
  const std::size_t colon = text.find(':');
  const bool has_time = colon != std::string::npos;
  const auto id = whole_number(has_time ? text.substr(colon + 1) : text);
  auto time = whole_number(text.substr(0, colon));
  if (!id || !time) {
    throw ToolError(fmt::format("--before: \"{}\" is neither TIME:ID nor a message's id", text));
  }
  if (!has_time) time = time_of(store, *id);
  if (!time) {
    throw ToolError(store.name() + ": no message " + text +
                    "; if the message is gone, give its TIME:ID to --before");
  }
  return {*time, *id};
}

// One message more than the limit, to see whether there are more.
SearchCriteria criteria_of(const SearchOptions& options, const Snapshot& store) {
  SearchCriteria criteria;
  criteria.text = options.text;
  criteria.session_id = options.session_id;
  criteria.types = options.types;
  if (options.before) criteria.before = place_before(store, *options.before);
  criteria.most = int64_t{options.limit} + 1;
  return criteria;
}

struct Answer {
  FoundMessages messages;
  bool has_more = false;  // than the limit
  bool index = false;     // whether the index was used
  std::string note;       // what to say about the index
  // The offset of the first hit in the content of a message.
  std::function<std::size_t(const std::string&)> hit_in;
};

Answer find_text(const SearchOptions& options) {
  const LiteralSearch search(options.text,
                             options.ignore_case ? LiteralSearch::kIgnored : LiteralSearch::kExact);
  const Snapshot store(options.folder);
  Answer answer;
  answer.messages = search.find(store, criteria_of(options, store));
  answer.hit_in = [search](const std::string& content) { return search.hit_in(content); };
  return answer;
}

Answer find_words(const SearchOptions& options) {
  const WordSearch search(options.text);
  const Snapshot store(options.folder);
  const SearchCriteria criteria = criteria_of(options, store);
  Answer answer;
  answer.hit_in = [search](const std::string& content) { return search.hit_in(content); };
  if (!options.no_index) {
    IndexCopy index(options.folder, store);
    auto found = index.find(criteria);
    answer.note = index.note();
    answer.index = found.has_value();
    if (found) answer.messages = std::move(*found);
  }
  if (!answer.index) answer.messages = search.find(store, criteria);
  return answer;
}

Answer find_messages(const SearchOptions& options) {
  Answer answer = options.literal ? find_text(options) : find_words(options);
  answer.has_more = answer.messages.size() > static_cast<std::size_t>(options.limit);
  if (answer.has_more) answer.messages.pop_back();
  return answer;
}

// Begins the content shortly before the first hit if the table clips it, so that the hit is shown.
std::string from_the_hit(const std::string& content, const Answer& answer) {
  constexpr std::size_t kBefore = 24;
  if (terminal_width() == 0) return content;
  const std::size_t hit = answer.hit_in(content);
  if (hit <= 2 * kBefore || hit >= content.size()) return content;
  std::size_t from = hit - kBefore;
  while (from > 0 && (content[from] & 0xc0) == 0x80) --from;
  return "…" + content.substr(from);
}

void print_found_json(const Answer& answer) {
  Json messages = Json::array();
  for (const MessageResponse& m : answer.messages) messages.push_back(message_json(m, true));
  Json next = answer.has_more ? Json(place_text(answer.messages.back())) : Json(nullptr);
  print_json({{"messages", std::move(messages)},
              {"next_place", std::move(next)},
              {"index", answer.index}});
}

void print_found(const Answer& answer) {
  TextTable table(
      {{"ID", TextTable::kRight}, {"TIME (UTC)"}, {"TYPE"}, {"SESSION"}, {"SENDER"}, {"CONTENT"}});
  for (const MessageResponse& m : answer.messages) {
    table.add({std::to_string(m.msg_id_), time_text(m.sent_time_), type_name(m.session_type_),
               m.session_id_, m.sender_, from_the_hit(m.content_, answer)});
  }
  table.print(std::cout, terminal_width());
  if (answer.has_more) std::cout << "more: --before " << place_text(answer.messages.back()) << '\n';
}

int run_search(const SearchOptions& options) {
  const Answer answer = find_messages(options);
  if (!answer.note.empty()) std::cerr << "corvan: " << printable(answer.note) << '\n';
  if (options.json) {
    print_found_json(answer);
  } else if (!answer.messages.empty()) {
    print_found(answer);
  }
  if (!answer.messages.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

constexpr const char* kSearchResult =
    "A message is found if it contains all terms of TEXT. A term is a word, or several words in\n"
    "quotation marks, which must follow each other: \"at noon\". noon* also finds longer words. Letter\n"
    "case, width and punctuation do not matter. Chinese, Japanese, Korean, Thai, Lao, Khmer and\n"
    "Burmese characters and emoji match wherever they are in a word. With --literal, TEXT is searched\n"
    "as it is, anywhere in the content; --ignore-case then makes upper and lower case letters equal,\n"
    "and composed and decomposed ones. Without --literal it changes nothing.\n"
    "The newest message comes first; among messages of the same time, the one with the larger id.\n"
    "An index made by 'search-index' is used if there is one; it does not change the result.\n"
    "With --json: an object with messages, an array of objects with the keys of 'history';\n"
    "next_place, the TIME:ID to give with --before for the next page, null if there is none; and\n"
    "index (whether the index was used).\n"
    "Exit status 1 if there are no such messages.\n";

}  // namespace

void add_search(CommandLine& line) {
  auto [command, options] = line.add<SearchOptions>(
      "search", "Find messages by words of their text", kSearchResult, run_search);
  command.argument("TEXT", options.text, "the text to search for");
  command.option("--session", "SESSION", options.session_id,
                 "only in the conversation with this id");
  command.types(options.types, "only in conversations of this type; may be repeated: ");
  command.flag("--literal", options.literal, "search for TEXT as it is written");
  command.flag("--ignore-case", options.ignore_case, "with --literal, ignore letter case");
  command.flag("--no-index", options.no_index, "do not use the search index");
  command.option("--before", "TIME:ID", options.before,
                 "the page after this message, given by its time and id, or by its id alone while "
                 "it exists (default: the newest messages)");
  command.number("--limit", "N", options.limit, "at most N messages (default 20)");
}

}  // namespace corvan_tool
