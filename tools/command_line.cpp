#include "tools/command_line.h"

#include <sqlite3.h>

#include <charconv>
#include <system_error>

#include "tools/names.h"
#include "tools/text_table.h"
#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

constexpr const char* kFooter =
    "FOLDER is the folder that holds the store's file, \"corvan\". Only import, index, compact and\n"
    "verify --repair change a store; the others look at a temporary copy. Times are in UTC.\n"
    "Exit status: 0 for success, 1 for a negative answer, 2 for bad usage, bad input or a store\n"
    "that cannot be read or written.\n";

}  // namespace

CLI::Validator not_empty() {
  const auto check = [](const std::string& text) -> std::string {
    return text.empty() ? "must not be empty" : "";
  };
  return {check, "", ""};
}

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

CommandLine::CommandLine()
    : app_(
          "Imports conversation logs into a message store, looks into stores, checks, repairs and "
          "rescues them, and brings their content out.",
          "corvan") {
  app_.footer(kFooter);
  app_.set_version_flag(
      "--version", "corvan " CORVAN_VERSION " (SQLite " + std::string(sqlite3_libversion()) + ")");
  app_.require_subcommand(1);
  app_.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return "corvan: " + printable(error.what()) + "; see 'corvan --help'\n";
  });
}

int CommandLine::run(int argc, char** argv) {
  try {
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app_.exit(error) != 0) return kFailure;
  }
  return status_;
}

}  // namespace corvan_tool
