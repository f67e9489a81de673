// corvan, the command-line tool: imports conversation logs into a store, looks into stores and
// keeps their indexes up to date.

#include <sqlite3.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <string>
#include <system_error>

#include "tools/commands.h"
#include "tools/import.h"
#include "tools/import_line.h"
#include "tools/index.h"
#include "tools/names.h"
#include "tools/text_table.h"
#include "tools/tool_error.h"

namespace {

using namespace corvan_tool;

constexpr const char* kFooter =
    "FOLDER is the folder that holds the store's file, \"corvan\". Only import and index change a\n"
    "store; the others look at a temporary copy. Times are in UTC. Exit status: 0 for success, 1 for a\n"
    "negative answer, 2 for bad usage, bad input or a store that cannot be read or written.\n";

constexpr const char* kImportResult =
    "At the end it tells how many lines were stored as new messages, completed a message that was\n"
    "there without a server_uid (found by client_uid and sender), were refused because their\n"
    "message was there, and were bad.\n"
    "With --json: an object with stored, completed, refused, bad, seconds and lines_per_second.\n";

constexpr const char* kListKeys =
    "With --json: an array of objects with session_id, session_type (1 private, 2 group,\n"
    "3 chat room, 4 reception, 5 system), title, draft, is_top, silence, unread_count,\n"
    "mention_count, session_time, and message: null, or the latest message as in 'history'\n"
    "without its sent_time.\n";

constexpr const char* kHistoryKeys =
    "The messages come oldest first. STATE is, of a received message, unread or read; of an own\n"
    "one, sent, sending, failed or seen. Messages of the very time of the one given with --before\n"
    "or --after are not shown.\n"
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
    "With --json: an object with ok (true or false) and result (the text).\n"
    "Exit status 1 when the store is damaged.\n";

constexpr const char* kIndexResult =
    "A store keeps the indexes that it was made with. Those that a new store has are created where\n"
    "they are missing and replaced where their statement differs. Of the others on the store's\n"
    "tables, those named like the store's own, TABLE_..., are from an older set and are dropped;\n"
    "any other name is somebody's own index: it is named and left unless --drop-others is given.\n"
    "Tables and messages stay as they are. All is done in one transaction, or nothing. A client\n"
    "may have the store open, but what it saves meanwhile fails. A store that is locked for two\n"
    "seconds is an error.\n"
    "With --json: an object with dry_run; created, replaced, dropped, left: arrays of objects with\n"
    "name, table, sql, of created and replaced ones also seconds and bytes (null when unknown), of\n"
    "replaced ones also old_sql; kept (a number) and seconds.\n";

CLI::Validator not_empty() {
  const auto check = [](const std::string& text) -> std::string {
    return text.empty() ? "must not be empty" : "";
  };
  return {check, "", ""};
}

// Adds a command; `run` is kept by reference and called when the command line names it.
CLI::App* add_command(CLI::App& app, const std::string& name, const std::string& text,
                      const std::string& footer, bool& json, std::string& folder,
                      const std::function<int()>& run, int& status) {
  CLI::App* command = app.add_subcommand(name, text);
  command->footer(footer);
  command->add_option("FOLDER", folder, "the store's folder")->required()->check(not_empty());
  command->add_flag("--json", json, "write JSON for programs");
  command->callback([run, &status] { status = run(); });
  return command;
}

constexpr const char* kKinds = "private, group, chatroom, reception, system, or 1 to 5";

// A kind's name, in whatever case, or its number; the text becomes the number.
CLI::Validator kind_of_conversation() {
  const auto to_number = [](std::string& text) -> std::string {
    const std::string name = CLI::detail::to_lower(text);
    for (const auto& [kind, value] : kinds_by_name()) {
      const std::string number = std::to_string(value);
      if (name != kind && name != number) continue;
      text = number;
      return "";
    }
    return "\"" + text + "\" is none of " + kKinds;
  };
  return {to_number, ""};
}

// A whole number from 1 on in plain decimal.
CLI::Validator number_up_to(int64_t largest) {
  const auto check = [largest](const std::string& text) -> std::string {
    int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [read_to, error] = std::from_chars(text.data(), end, value);
    const bool plain = error == std::errc() && read_to == end && text[0] != '0';
    if (plain && value >= 1 && value <= largest) return "";
    return "\"" + text + "\" is no whole number from 1 to " + std::to_string(largest);
  };
  return {check, "", ""};
}

// `target` holds one kind, or a list of them when the option may be given again.
template <typename Target>
CLI::Option* add_kind(CLI::App* command, Target& target, const std::string& text) {
  return command->add_option("--type", target, text + kKinds)
      ->transform(kind_of_conversation())
      ->allow_extra_args(false)
      ->option_text("T");
}

int run(int argc, char** argv) {
  CLI::App app(
      "Imports conversation logs into a message store, looks into stores and keeps their indexes up "
      "to date.",
      "corvan");
  app.footer(kFooter);
  app.set_version_flag(
      "--version", "corvan " CORVAN_VERSION " (SQLite " + std::string(sqlite3_libversion()) + ")");
  app.require_subcommand(1);
  app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return "corvan: " + printable(error.what()) + "; see 'corvan --help'\n";
  });
  int status = kOk;
  const CLI::Validator any_limit = number_up_to(std::numeric_limits<int32_t>::max());
  const CLI::Validator any_id = number_up_to(std::numeric_limits<int64_t>::max());

  ImportOptions import;
  CLI::App* command = add_command(
      app, "import", "Save the messages of conversation logs (JSON Lines)",
      std::string(kImportKeys) + kImportResult, import.json, import.folder,
      [&import] { return run_import(import); }, status);
  command->get_option("FOLDER")->description("the store's folder, created when it is missing");
  command->add_option("FILE", import.files, "the logs, in time order; - for standard input")
      ->required();
  command->add_option("--user", import.user, "the signed-in user's id (required)")
      ->required()
      ->check(not_empty())
      ->option_text("ID");
  command
      ->add_option("--batch", import.batch_size,
                   "lines checked and saved together, in one transaction (default 1000)")
      ->check(number_up_to(1000000))
      ->option_text("N");
  command->add_flag("--history", import.history,
                    "save as fetched history: a message not newer than its conversation leaves it");
  command->add_flag("--insert-only", import.insert_only,
                    "save without moving the conversations forward");
  command->add_flag("--skip-bad", import.skip_bad,
                    "name and count bad lines and go on; otherwise the first one ends the import, "
                    "and nothing of its batch is saved");

  ListOptions list;
  command = add_command(
      app, "list", "Show the conversations, pinned first, then newest first", kListKeys, list.json,
      list.folder, [&list] { return run_list(list); }, status);
  add_kind(command, list.kinds, "only conversations of this kind, may be given again: ");
  command->add_option("--limit", list.limit, "at most so many (default: all)")
      ->check(any_limit)
      ->option_text("N");

  HistoryOptions history;
  command = add_command(
      app, "history", "Show messages of one conversation", kHistoryKeys, history.json,
      history.folder, [&history] { return run_history(history); }, status);
  command->add_option("SESSION", history.session_id, "the conversation's id")->required();
  add_kind(command, history.kind, "its kind (required): ")->required();
  CLI::Option* before =
      command->add_option("--before", history.before, "those before this message (default: newest)")
          ->check(any_id)
          ->option_text("ID");
  command->add_option("--after", history.after, "those after this message")
      ->check(any_id)
      ->option_text("ID")
      ->excludes(before);
  command->add_option("--limit", history.limit, "at most so many (default 20)")
      ->check(any_limit)
      ->option_text("N");
  command
      ->add_option("--kind", history.object_names,
                   "only messages of this kind, as CV:TxtMsg; may be given again")
      ->check(not_empty())
      ->allow_extra_args(false)
      ->option_text("NAME");

  UnreadOptions unread;
  command = add_command(
      app, "unread", "Show the unread and mention counters", kUnreadKeys, unread.json,
      unread.folder, [&unread] { return run_unread(unread); }, status);
  add_kind(command, unread.kinds, "only this kind, may be given again: ");

  ShowOptions show;
  command = add_command(
      app, "show", "Show one message", kShowKeys, show.json, show.folder,
      [&show] { return run_show(show); }, status);
  command->add_option("ID", show.id, "the message's id")->required()->check(any_id);

  CheckOptions check;
  add_command(
      app, "check", "Check that the store's file is sound", kCheckKeys, check.json, check.folder,
      [&check] { return run_check(check); }, status);

  IndexOptions index;
  command = add_command(
      app, "index", "Bring the store's indexes up to those of a new store", kIndexResult,
      index.json, index.folder, [&index] { return run_index(index); }, status);
  command->add_flag("--drop-others", index.drop_others,
                    "drop also indexes that are not named like the store's own");
  command->add_flag("--dry-run", index.dry_run,
                    "only tell what would be done, tried on a temporary copy");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) != 0) return kFailure;
  }
  if (!std::cout.flush()) throw ToolError("standard output: cannot be written");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that leaves early must not keep copies from being removed.
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);  // reads standard input in blocks
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "corvan: " << printable(error.what()) << '\n';
    return kFailure;
  }
}
