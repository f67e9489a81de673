#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/time.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;

struct HistoryOptions {
  std::string folder;
  std::string session_id;
  Corvan::SessionType type = Corvan::CV_PRIVATE;
  std::optional<int64_t> before;  // message ids
  std::optional<int64_t> after;
  int32_t limit = 20;
  std::vector<std::string> object_names;  // empty: all
  bool json = false;
};

// Throws ToolError if the message is not in the conversation.
int64_t anchor_time(const Snapshot& store, const HistoryOptions& options, int64_t id) {
  std::optional<int64_t> time;
  store.each_row(
      fmt::format("select {} from t_message where id=? and session_id=? and session_type=?",
                  kMessageTime),
      [&time](const Row& row) { time = row.int64(0); }, id, options.session_id,
      int64_t{options.type});
  if (!time) {
    throw ToolError(fmt::format("{}: message {} is not in this conversation", store.name(), id));
  }
  return *time;
}

// ?1 and ?2 are the conversation, ?3 and ?4 time and id of the message at --before or --after, ?5
// the limit.
std::string history_query(const HistoryOptions& options) {
  std::string sql =
      "select " + kMessageColumns + " from t_message where session_id=?1 and session_type=?2";
  if (options.after || options.before) {
    sql += fmt::format(" and ({},id){}(?3,?4)", kMessageTime, options.after ? '>' : '<');
  }
  if (!options.object_names.empty()) {
    sql += fmt::format(" and object_name in({})", quoted_texts(options.object_names));
  }
  const char* const order = options.after ? "" : " desc";
  return sql + fmt::format(" order by {0}{1},id{1} limit ?5", kMessageTime, order);
}

// The messages, oldest first. The library's own queries would leave out messages with the same time
// as the one at --before or --after.
std::vector<MessageResponse> read_history(const HistoryOptions& options) {
  const Snapshot store(options.folder);
  const StatementProgress progress(store.connection().handle(), "million steps of reading");
  const std::optional<int64_t> anchor = options.after ? options.after : options.before;
  std::vector<MessageResponse> messages;
  store.each_row(
      history_query(options), [&messages](const Row& row) { messages.push_back(message_at(row)); },
      options.session_id, int64_t{options.type}, anchor ? anchor_time(store, options, *anchor) : 0,
      anchor.value_or(0), int64_t{options.limit});
  if (!options.after) std::reverse(messages.begin(), messages.end());
  return messages;
}

void print_history(const std::vector<MessageResponse>& messages) {
  TextTable table(
      {{"ID", TextTable::kRight}, {"TIME (UTC)"}, {"SENDER"}, {"STATE"}, {"KIND"}, {"CONTENT"}});
  for (const MessageResponse& m : messages) {
    table.add({std::to_string(m.msg_id_), time_text(m.sent_time_), m.sender_, state_text(m),
               m.object_name_, m.content_});
  }
  table.print(std::cout, terminal_width());
}

int run_history(const HistoryOptions& options) {
  const std::vector<MessageResponse> messages = read_history(options);
  if (options.json) {
    Json list = Json::array();
    for (const MessageResponse& m : messages) list.push_back(message_json(m, true));
    print_json(list);
  } else if (!messages.empty()) {
    print_history(messages);
  }
  if (!messages.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

constexpr const char* kHistoryResult =
    "The messages are sorted by time, then id, oldest first. STATE is unread or read for a received\n"
    "message, and sent, sending, failed or seen for an own one.\n"
    "With --json: an array of objects with msg_id, session_id, session_type, object_name, sender,\n"
    "content, is_receive, read_status (0 unread, else read), sent_status (0 sent, 1 being sent,\n"
    "2 failed, 3 seen), server_uid, sent_time (milliseconds since the Unix epoch).\n"
    "Exit status 1 if there are no such messages.\n";

}  // namespace

void add_history(CommandLine& line) {
  auto [command, options] = line.add<HistoryOptions>("history", "Show messages of one conversation",
                                                     kHistoryResult, run_history);
  command.argument("SESSION", options.session_id, "the conversation's id", Emptiness::kAllowed);
  command.type(options.type, "its type (required): ");
  const Command::Option before = command.id("--before", "ID", options.before,
                                            "messages before this one (default: the newest)");
  const Command::Option after =
      command.id("--after", "ID", options.after, "messages after this one");
  Command::exclude(after, before);
  command.number("--limit", "N", options.limit, "at most N messages (default 20)");
  command.option("--kind", "NAME", options.object_names,
                 "only messages of this kind, for example CV:TxtMsg; may be repeated");
}

}  // namespace corvan_tool
