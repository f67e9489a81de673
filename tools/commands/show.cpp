#include <fmt/format.h>

#include <cstdint>
#include <iostream>
#include <optional>
#include <string>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/time.h"

namespace corvan_tool {

namespace {

struct ShowOptions {
  std::string folder;
  int64_t id = 0;
  bool json = false;
};

struct WholeMessage {
  Corvan::MessageResponse message;
  bool is_mention = false;
  int64_t client_uid = 0;
};

std::optional<WholeMessage> read_message(const ShowOptions& options) {
  std::optional<WholeMessage> found;
  Snapshot(options.folder)
      .each_row(
          "select " + kMessageColumns + ",is_mention,client_uid from t_message where id=?",
          [&found](const Row& row) {
            found = {message_at(row), row.int32(11) == 1, row.int64(12)};
          },
          options.id);
  return found;
}

void print_message_json(const WholeMessage& whole) {
  Json json = message_json(whole.message, true);
  json["is_mention"] = whole.is_mention;
  json["client_uid"] = whole.client_uid;
  print_json(json);
}

void print_message(const WholeMessage& whole) {
  const Corvan::MessageResponse& m = whole.message;
  const auto print = [](const char* key, const std::string& value) {
    std::cout << fmt::format("{:<12}{}\n", key, printable(value));
  };
  print("id", std::to_string(m.msg_id_));
  print("session", fmt::format("{} ({})", m.session_id_, type_name(m.session_type_)));
  print("sender", m.sender_ + (m.is_receive_ ? " (received)" : " (own)"));
  print("time (UTC)", fmt::format("{} ({})", time_text(m.sent_time_), m.sent_time_));
  print("read", read_status_name(m.read_status_));
  print("sent", sent_status_name(m.sent_status_));
  print("mention", whole.is_mention ? "yes" : "no");
  print("server uid", m.server_uid_);
  print("client uid", std::to_string(whole.client_uid));
  print("kind", m.object_name_);
  print("content", m.content_);
}

int run_show(const ShowOptions& options) {
  const std::optional<WholeMessage> found = read_message(options);
  if (!found) {
    if (options.json) print_json(nullptr);
    std::cerr << "corvan: no message " << options.id << "\n";
    return kNegative;
  }
  if (options.json) {
    print_message_json(*found);
  } else {
    print_message(*found);
  }
  return kOk;
}

constexpr const char* kShowResult =
    "With --json: an object with the keys of 'history' and is_mention and client_uid, or null.\n"
    "Exit status 1 if there is no such message.\n";

}  // namespace

void add_show(CommandLine& line) {
  auto [command, options] =
      line.add<ShowOptions>("show", "Show one message", kShowResult, run_show);
  command.argument("ID", options.id, "the message's id");
}

}  // namespace corvan_tool
