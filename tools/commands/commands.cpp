#include "tools/commands/commands.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <sstream>
#include <utility>

#include "base/cv_utils.h"
#include "tools/commands/command_line.h"
#include "tools/store/connection.h"
#include "tools/store/library_store.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

struct ListOptions {
  std::string folder;
  std::vector<Corvan::SessionType> kinds;  // none: all
  int32_t limit = -1;                      // below 0: no limit
  bool json = false;
};

struct HistoryOptions {
  std::string folder;
  std::string session_id;
  Corvan::SessionType kind = Corvan::CV_PRIVATE;
  std::optional<int64_t> before;  // message ids
  std::optional<int64_t> after;
  int32_t limit = 20;
  std::vector<std::string> object_names;  // none: all
  bool json = false;
};

struct UnreadOptions {
  std::string folder;
  std::vector<Corvan::SessionType> kinds;  // none: all
  bool json = false;
};

struct ShowOptions {
  std::string folder;
  int64_t id = 0;
  bool json = false;
};

struct CheckOptions {
  std::string folder;
  bool json = false;
};

// A store's copy, open, and as the store itself is: messages that are being sent stay so although
// opening a store marks them as failed.
class Look {
 public:
  explicit Look(const std::string& folder) : name_(store_file(folder)), copy_(folder) {
    const std::string file = store_file(copy_.folder());
    require_store(file, name_, false);
    const std::vector<int64_t> sending = messages_being_sent(file, name_);
    store_.emplace(copy_.folder(), "");
    store()->start_transaction();
    for (const int64_t id : sending) store()->update_sent_status(id, 1);
    store()->commit_transaction();
    require_success();
  }

  OpenStore& store() { return *store_; }

  // Throws ToolError when anything could not be read.
  void require_success() {
    if (store_->failure().empty()) return;
    throw ToolError(name_ + ": " + store_->failure() + "; see 'corvan check' and 'corvan salvage'");
  }

 private:
  std::string name_;
  StoreCopy copy_;
  std::optional<OpenStore> store_;
};

// Whether the message that a conversation calls its latest is there, and its own.
bool is_latest_there(OpenStore& store, const SessionInfo& session) {
  MessageResponse latest;
  latest.msg_id_ = session.message_.msg_id_;
  return store->get_message_by_id(latest) && latest.session_id_ == session.session_id_ &&
         latest.session_type_ == session.session_type_;
}

std::vector<SessionType> kinds_or_all(const std::vector<SessionType>& kinds) {
  return kinds.empty() ? all_kinds() : kinds;
}

// The time of a message of the conversation.
int64_t time_of(const Snapshot& store, const HistoryOptions& options, int64_t id) {
  std::optional<int64_t> time;
  store.each_row(
      std::string("select ") + kMessageTime +
          " from t_message where id=? and session_id=? and session_type=?",
      [&time](sqlite3_stmt* row) { time = sqlite3_column_int64(row, 0); }, id, options.session_id,
      int64_t{options.kind});
  if (time) return *time;
  throw ToolError(store.name() + ": message " + std::to_string(id) +
                  " is not in this conversation");
}

// The messages that history shows, oldest first. The library's own history leaves out those of the
// anchor's time.
std::vector<MessageResponse> read_history(const HistoryOptions& options) {
  const Snapshot store(options.folder);
  const StatementProgress progress(store.connection().handle(), "million steps of reading");
  const std::string place = std::string("(") + kMessageTime + ",id)";
  std::string sql =
      "select " + kMessageColumns + " from t_message where session_id=?1 and session_type=?2";
  const std::optional<int64_t> anchor = options.after ? options.after : options.before;
  if (anchor) sql += " and " + place + (options.after ? ">" : "<") + "(?3,?4)";
  std::string names;
  for (std::string name : options.object_names) {
    Corvan::CvUtils::string_replace(name, "'", "''");
    names += (names.empty() ? "'" : ",'") + name + "'";
  }
  if (!names.empty()) sql += " and object_name in(" + names + ")";
  const char* const order = options.after ? "" : " desc";
  sql += std::string(" order by ") + kMessageTime + order + ",id" + order + " limit ?5";

  std::vector<MessageResponse> messages;
  store.each_row(
      sql, [&messages](sqlite3_stmt* row) { messages.push_back(message_at(row)); },
      options.session_id, int64_t{options.kind}, anchor ? time_of(store, options, *anchor) : 0,
      anchor.value_or(0), int64_t{options.limit});
  if (!options.after) std::reverse(messages.begin(), messages.end());
  return messages;
}

// The findings of SQLite's integrity check, one per line.
std::string check(const std::string& folder) {
  const Snapshot store(folder, Snapshot::kAccepted);
  if (!store.damage().empty()) return store.damage();
  const StatementProgress progress(store.connection().handle(), "million steps of the check");
  std::string result;
  const auto add = [&result](const std::string& finding) {
    if (!result.empty()) result += '\n';
    result += finding;
  };
  const int rc = store.connection().each_row("pragma integrity_check",
                                             [&add](const Row& row) { add(row.text(0)); });
  if (is_damage(rc)) {
    add(store.connection().error());
  } else {
    store.require(rc);
  }
  return result;
}

constexpr const char* kListKeys =
    "With --json: an array of objects with session_id, session_type (1 private, 2 group,\n"
    "3 chat room, 4 reception, 5 system), title, draft, is_top, silence, unread_count,\n"
    "mention_count, session_time, and message: the latest message as in 'history' without its\n"
    "sent_time, or null where there is none or it is gone.\n";

constexpr const char* kHistoryKeys =
    "The messages come oldest first. STATE is, of a received message, unread or read; of an own\n"
    "one, sent, sending, failed or seen. Of equal times the smaller id comes first.\n"
    "With --json: an array of objects with msg_id, session_id, session_type, object_name, sender,\n"
    "content, is_receive, read_status (0 unread, else read), sent_status (0 sent, 1 being sent,\n"
    "2 failed, 3 seen), server_uid, sent_time (milliseconds since the Unix epoch).\n"
    "Exit status 1 when there are no such messages.\n";

constexpr const char* kUnreadKeys =
    "NOT MUTED leaves out the conversations whose notifications are off.\n"
    "With --json: an object with one member a kind, and \"all\"; each holds unread_count,\n"
    "unmuted_unread_count and mention_count.\n";

constexpr const char* kShowKeys =
    "With --json: an object with the keys of 'history' and is_mention and client_uid, or null.\n"
    "Exit status 1 when there is no such message.\n";

constexpr const char* kCheckKeys =
    "Prints \"ok\", or what SQLite's integrity check found.\n"
    "With --json: an object with ok (true or false) and result (the text, a finding a line).\n"
    "Exit status 1 when the store is damaged.\n";

int run_list(const ListOptions& options) {
  std::vector<SessionInfo> sessions;
  {
    Look look(options.folder);
    OpenStore& store = look.store();
    store->get_session_list_by_page(kinds_or_all(options.kinds), 0, options.limit, sessions);
    for (SessionInfo& s : sessions) {
      if (!is_latest_there(store, s)) s.message_ = {};
    }
    look.require_success();
  }

  if (options.json) {
    Json list = Json::array();
    for (const SessionInfo& s : sessions) {
      Json entry = {
          {"session_id", s.session_id_},
          {"session_type", s.session_type_},
          {"title", s.title_},
          {"draft", s.draft_},
          {"is_top", s.is_top_},
          {"silence", s.silence_},
          {"unread_count", s.unread_count_},
          {"mention_count", s.mention_count_},
          {"session_time", s.session_time},
          {"message", nullptr},
      };
      if (s.message_.msg_id_ > 0) entry["message"] = message_json(s.message_, false);
      list.push_back(std::move(entry));
    }
    print_json(list);
    return kOk;
  }

  TextTable table({{"KIND"},
                   {"SESSION"},
                   {"FLAGS"},
                   {"UNREAD", TextTable::kRight},
                   {"MENTIONS", TextTable::kRight},
                   {"TIME (UTC)"},
                   {"LATEST", TextTable::kRight},
                   {"SENDER"},
                   {"CONTENT"}});
  for (const SessionInfo& s : sessions) {
    std::string flags;
    if (s.is_top_ != 0) flags += "pinned ";
    if (s.silence_ != 0) flags += "muted ";
    if (!s.draft_.empty()) flags += "draft ";
    if (!flags.empty()) flags.pop_back();
    table.add({kind_name(s.session_type_), s.session_id_, flags, std::to_string(s.unread_count_),
               std::to_string(s.mention_count_), time_text(s.session_time),
               s.message_.msg_id_ > 0 ? std::to_string(s.message_.msg_id_) : "", s.message_.sender_,
               s.message_.content_});
  }
  table.print(std::cout, terminal_width());
  return kOk;
}

int run_history(const HistoryOptions& options) {
  const std::vector<MessageResponse> messages = read_history(options);
  if (options.json) {
    Json list = Json::array();
    for (const MessageResponse& m : messages) list.push_back(message_json(m, true));
    print_json(list);
  } else if (!messages.empty()) {
    TextTable table(
        {{"ID", TextTable::kRight}, {"TIME (UTC)"}, {"SENDER"}, {"STATE"}, {"KIND"}, {"CONTENT"}});
    for (const MessageResponse& m : messages) {
      table.add({std::to_string(m.msg_id_), time_text(m.sent_time_), m.sender_, state_text(m),
                 m.object_name_, m.content_});
    }
    table.print(std::cout, terminal_width());
  }
  if (!messages.empty()) return kOk;
  std::cerr << "corvan: no such messages\n";
  return kNegative;
}

int run_unread(const UnreadOptions& options) {
  struct Line {
    std::string kind;
    int32_t unread = 0;
    int32_t unmuted = 0;
    int32_t mentions = 0;
  };
  const std::vector<SessionType> kinds = kinds_or_all(options.kinds);
  std::vector<Line> lines;
  {
    Look look(options.folder);
    const auto add = [&](const std::string& name, const std::vector<SessionType>& of) {
      Line line;
      line.kind = name;
      look.store()->get_unread_mention_count(of, line.unread, line.mentions);
      look.store()->get_cate_unread_count(of, line.unmuted, false);
      lines.push_back(line);
    };
    for (const SessionType kind : kinds) add(kind_name(kind), {kind});
    add("all", kinds);
    look.require_success();
  }

  if (options.json) {
    Json result = Json::object();
    for (const Line& line : lines) {
      result[line.kind] = {{"unread_count", line.unread},
                           {"unmuted_unread_count", line.unmuted},
                           {"mention_count", line.mentions}};
    }
    print_json(result);
    return kOk;
  }
  TextTable table({{"KIND"},
                   {"UNREAD", TextTable::kRight},
                   {"NOT MUTED", TextTable::kRight},
                   {"MENTIONS", TextTable::kRight}});
  for (const Line& line : lines) {
    table.add({line.kind, std::to_string(line.unread), std::to_string(line.unmuted),
               std::to_string(line.mentions)});
  }
  table.print(std::cout, terminal_width());
  return kOk;
}

int run_show(const ShowOptions& options) {
  MessageResponse m;
  bool found = false;
  bool is_mention = false;
  int64_t client_uid = 0;
  Snapshot(options.folder)
      .each_row(
          "select " + kMessageColumns + ",is_mention,client_uid from t_message where id=?",
          [&](sqlite3_stmt* row) {
            found = true;
            m = message_at(row);
            is_mention = sqlite3_column_int(row, 11) == 1;
            client_uid = sqlite3_column_int64(row, 12);
          },
          options.id);
  if (!found) {
    if (options.json) print_json(nullptr);
    std::cerr << "corvan: no message " << options.id << "\n";
    return kNegative;
  }
  if (options.json) {
    Json json = message_json(m, true);
    json["is_mention"] = is_mention;
    json["client_uid"] = client_uid;
    print_json(json);
    return kOk;
  }
  const auto print = [](const char* key, const std::string& value) {
    std::cout << key << printable(value) << '\n';
  };
  print("id          ", std::to_string(m.msg_id_));
  print("session     ", m.session_id_ + " (" + kind_name(m.session_type_) + ")");
  print("sender      ", m.sender_ + (m.is_receive_ ? " (received)" : " (own)"));
  print("time (UTC)  ", time_text(m.sent_time_) + " (" + std::to_string(m.sent_time_) + ")");
  print("read        ", read_status_name(m.read_status_));
  print("sent        ", sent_status_name(m.sent_status_));
  print("mention     ", is_mention ? "yes" : "no");
  print("server uid  ", m.server_uid_);
  print("client uid  ", std::to_string(client_uid));
  print("kind        ", m.object_name_);
  print("content     ", m.content_);
  return kOk;
}

int run_check(const CheckOptions& options) {
  const std::string result = check(options.folder);
  const bool sound = result == "ok";
  if (options.json) {
    print_json({{"ok", sound}, {"result", result}});
  } else {
    std::istringstream findings(result);
    for (std::string line; std::getline(findings, line);) std::cout << printable(line) << '\n';
  }
  return sound ? kOk : kNegative;
}

}  // namespace

void add_look(CommandLine& line) {
  auto [list, list_options] = line.add<ListOptions>(
      "list", "Show the conversations, pinned first, then newest first", kListKeys, run_list);
  list.kinds(list_options.kinds, "only conversations of this kind, may be given again: ");
  list.number("--limit", "N", list_options.limit, "at most so many (default: all)");

  auto [history, options] = line.add<HistoryOptions>("history", "Show messages of one conversation",
                                                     kHistoryKeys, run_history);
  history.argument("SESSION", options.session_id, "the conversation's id", Emptiness::kAllowed);
  history.kind(options.kind, "its kind (required): ");
  const Command::Option before =
      history.id("--before", "ID", options.before, "those before this message (default: newest)");
  const Command::Option after =
      history.id("--after", "ID", options.after, "those after this message");
  Command::exclude(after, before);
  history.number("--limit", "N", options.limit, "at most so many (default 20)");
  history.option("--kind", "NAME", options.object_names,
                 "only messages of this kind, as CV:TxtMsg; may be given again");

  auto [unread, unread_options] = line.add<UnreadOptions>(
      "unread", "Show the unread and mention counters", kUnreadKeys, run_unread);
  unread.kinds(unread_options.kinds, "only this kind, may be given again: ");

  auto [show, show_options] =
      line.add<ShowOptions>("show", "Show one message", kShowKeys, run_show);
  show.argument("ID", show_options.id, "the message's id");
}

void add_check(CommandLine& line) {
  line.add<CheckOptions>("check", "Check that the store's file is sound", kCheckKeys, run_check);
}

}  // namespace corvan_tool
