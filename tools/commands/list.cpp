#include <algorithm>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
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

struct ListOptions {
  std::string folder;
  std::vector<Corvan::SessionType> types;  // empty: all
  int32_t limit = -1;                      // below 0: no limit
  bool json = false;
};

struct ListEntry {
  std::string id;
  int32_t type = 0;
  std::string title;
  std::string draft;
  int32_t is_top = 0;
  int32_t silence = 0;
  int32_t unread_count = 0;
  int32_t mention_count = 0;
  int64_t time = 0;
  int32_t latest_id = 0;
  std::optional<Corvan::MessageResponse> latest;

  bool has_latest() const { return latest && latest_id > 0; }
};

// A client's list ends texts at a zero byte and truncates ids to 32 bits. This list shows the same.
std::string shown(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

Corvan::MessageResponse shown(Corvan::MessageResponse m) {
  for (std::string* text :
       {&m.session_id_, &m.object_name_, &m.sender_, &m.content_, &m.server_uid_}) {
    *text = shown(*text);
  }
  return m;
}

ListEntry entry_at(const Row& row) {
  ListEntry c;
  c.id = shown(row.text(0));
  c.type = row.int32(1);
  c.title = shown(row.text(2));
  c.draft = shown(row.text(3));
  c.is_top = row.int32(4);
  c.silence = row.int32(5);
  c.unread_count = row.int32(6);
  c.mention_count = row.int32(7);
  c.time = row.int64(8);
  c.latest_id = row.int32(9);
  return c;
}

std::vector<ListEntry> read_rows(const Snapshot& store, const ListOptions& options) {
  std::vector<ListEntry> entries;
  store.each_row(
      "select session_id,session_type,title,draft,is_top,silence,unread_count,mention_count,"
      "session_time,latest_id from t_session where session_type in(" +
          listed_types(options.types) + ") order by is_top desc,session_time desc limit ?",
      [&entries](const Row& row) { entries.push_back(entry_at(row)); }, int64_t{options.limit});
  return entries;
}

// Reads the latest messages. A conversation without a draft has the time of its latest message.
void read_latest(const Snapshot& store, std::vector<ListEntry>& entries) {
  Statement message(store.connection(), "select " + kMessageColumns + " from t_message where id=?");
  for (ListEntry& c : entries) {
    message.bind(1, c.latest_id);
    const int rc = message.step();
    if (rc != SQLITE_ROW) {
      store.require(rc);
    } else if (auto found = shown(message_at(message.row()));
               found.session_id_ == c.id && found.session_type_ == c.type) {
      if (c.draft.empty()) c.time = found.sent_time_;
      c.latest = std::move(found);
    }
    message.reset();
  }
}

// As get_session_list_by_page() lists them: pinned first, then newest first.
std::vector<ListEntry> read_conversations(const ListOptions& options) {
  const Snapshot store(options.folder);
  std::vector<ListEntry> entries = read_rows(store, options);
  read_latest(store, entries);
  std::stable_sort(entries.begin(), entries.end(),
                   [](const ListEntry& one, const ListEntry& other) {
                     return std::pair(one.is_top, one.time) > std::pair(other.is_top, other.time);
                   });
  return entries;
}

Json conversation_json(const ListEntry& c) {
  return {
      {"session_id", c.id},
      {"session_type", c.type},
      {"title", c.title},
      {"draft", c.draft},
      {"is_top", c.is_top},
      {"silence", c.silence},
      {"unread_count", c.unread_count},
      {"mention_count", c.mention_count},
      {"session_time", c.time},
      {"message", c.has_latest() ? message_json(*c.latest, false) : Json(nullptr)},
  };
}

std::string flags_text(const ListEntry& c) {
  std::string flags;
  if (c.is_top != 0) flags += "pinned ";
  if (c.silence != 0) flags += "muted ";
  if (!c.draft.empty()) flags += "draft ";
  if (!flags.empty()) flags.pop_back();
  return flags;
}

void print_conversations(const std::vector<ListEntry>& entries) {
  TextTable table({{"TYPE"},
                   {"SESSION"},
                   {"FLAGS"},
                   {"UNREAD", TextTable::kRight},
                   {"MENTIONS", TextTable::kRight},
                   {"TIME (UTC)"},
                   {"LATEST", TextTable::kRight},
                   {"SENDER"},
                   {"CONTENT"}});
  for (const ListEntry& c : entries) {
    const bool has_latest = c.has_latest();
    table.add({type_name(c.type), c.id, flags_text(c), std::to_string(c.unread_count),
               std::to_string(c.mention_count), time_text(c.time),
               has_latest ? std::to_string(c.latest_id) : "", has_latest ? c.latest->sender_ : "",
               has_latest ? c.latest->content_ : ""});
  }
  table.print(std::cout, terminal_width());
}

int run_list(const ListOptions& options) {
  const std::vector<ListEntry> entries = read_conversations(options);
  if (options.json) {
    Json list = Json::array();
    for (const ListEntry& c : entries) list.push_back(conversation_json(c));
    print_json(list);
  } else {
    print_conversations(entries);
  }
  return kOk;
}

constexpr const char* kListResult =
    "With --json: an array of objects with session_id, session_type (1 private, 2 group,\n"
    "3 chat room, 4 reception, 5 system), title, draft, is_top, silence, unread_count,\n"
    "mention_count, session_time, and message: the latest message with the keys of 'history'\n"
    "without sent_time, or null if there is none or it is gone.\n";

}  // namespace

void add_list(CommandLine& line) {
  auto [command, options] = line.add<ListOptions>(
      "list", "Show the conversations, pinned first, then newest first", kListResult, run_list);
  command.types(options.types, "only conversations of this type; may be repeated: ");
  command.number("--limit", "N", options.limit, "at most N conversations (default: all)");
}

}  // namespace corvan_tool
