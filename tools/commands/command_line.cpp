#include "tools/commands/command_line.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <limits>
#include <system_error>
#include <utility>

#include "base/cv_utils.h"
#include "tools/store/key.h"
#include "tools/store/key_source.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"
#include "tools/ui/names.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

constexpr const char* kFooter =
    "FOLDER is the folder that holds the store's file, \"corvan\". Only import, index, compact,\n"
    "verify --repair, encrypt, decrypt and rekey change a store; the others read a temporary copy, but\n"
    "search-index reads the store itself, and writes a file beside it.\n"
    "Times are in UTC.\n"
    "Put \"--\" before an argument that begins with \"-\": corvan search FOLDER -- -x.\n"
    "--key-file FILE names the key of an encrypted store: FILE holds 64 hexadecimal digits, and only\n"
    "its owner should be able to read it (mode 0600); - is standard input. --passphrase asks for a\n"
    "passphrase on the terminal. Copies and new stores are encrypted with the same key.\n"
    "Exit status: 0 for success, 1 for a negative answer, 2 for bad usage, bad input or a store\n"
    "that cannot be read or written.\n";

constexpr const char* kTypes = "private, group, chatroom, reception, system, or 1 to 5";

CLI::Validator not_empty() {
  const auto check = [](const std::string& text) -> std::string {
    return text.empty() ? "must not be empty" : "";
  };
  return {check, "", ""};
}

CLI::Validator number_up_to(int64_t largest) {
  const auto check = [largest](const std::string& text) -> std::string {
    const std::optional<int64_t> value = whole_number(text);
    if (value && *value >= 1 && *value <= largest) return "";
    return fmt::format("\"{}\" is not a whole number from 1 to {}", text, largest);
  };
  return {check, "", ""};
}

CLI::Validator id_of_message() {
  const auto check = [](const std::string& text) -> std::string {
    return whole_number(text) ? "" : fmt::format("\"{}\" is not a message's id", text);
  };
  return {check, "", ""};
}

// Accepts a type's name, in any letter case, or its number. Replaces the text by the number.
CLI::Validator type_of_conversation() {
  const auto to_number = [](std::string& text) -> std::string {
    const std::string name = CLI::detail::to_lower(text);
    for (const auto& [type, value] : types_by_name()) {
      const std::string number = std::to_string(value);
      if (name != type && name != number) continue;
      text = number;
      return "";
    }
    return fmt::format("\"{}\" is not one of {}", text, kTypes);
  };
  return {to_number, ""};
}

// CLI11 splits a value "[a,b]" of a list in two. A byte that occurs in no text hides the closing
// bracket until the value has been parsed.
constexpr const char* kBracket = "]";
constexpr const char* kHiddenBracket = "]\xff";

std::string hidden_bracket(std::string argument) {
  if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']') {
    argument += kHiddenBracket[1];
  }
  return argument;
}

// Undoes hidden_bracket(), also in an error that quotes arguments.
std::string shown_bracket(std::string text) {
  Corvan::CvUtils::string_replace(text, kHiddenBracket, kBracket);
  return text;
}

template <typename Target>
CLI::Option* add_argument(CLI::App& app, const std::string& name, Target& target,
                          const std::string& text) {
  return app.add_option(name, target, text)->transform(shown_bracket);
}

template <typename Target>
CLI::Option* add_option(CLI::App& app, const std::string& name, const std::string& value,
                        Target& target, const std::string& text) {
  return add_argument(app, name, target, text)->allow_extra_args(false)->option_text(value);
}

template <typename Target>
CLI::Option* add_number(CLI::App& app, const std::string& name, const std::string& value,
                        Target& target, const std::string& text,
                        int64_t largest = std::numeric_limits<Target>::max()) {
  return add_option(app, name, value, target, text)->check(number_up_to(largest));
}

// Shows an option's name, the name of its value, and its text.
class HelpFormatter : public CLI::Formatter {
  std::string make_option_opts(const CLI::Option* option) const override {
    const std::string& value = option->get_option_text();
    return value.empty() ? "" : " " + value;
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    std::string text = option->get_description();
    for (const CLI::Option* other : option->get_needs()) text += "; only with " + other->get_name();
    for (const CLI::Option* other : option->get_excludes()) {
      text += "; not with " + other->get_name();
    }
    return text;
  }
};

}  // namespace

KeyAge key_age_in(const std::string& folder, KeyAge age) {
  if (age != KeyAge::kNewWithNewStore) return age;
  std::error_code unknown;
  return std::filesystem::exists(std::filesystem::u8path(store_file(folder)), unknown)
             ? KeyAge::kPresent
             : KeyAge::kNew;
}

Corvan::StoreKey key_from(const KeyOptions& options, const std::string& name, KeyAge key_age) {
  if (options.passphrase && !options.file.empty()) {
    throw ToolError("--key-file and --passphrase: give only one of them");
  }
  require_cipher(options.passphrase ? "--passphrase" : "--key-file");
  if (!options.passphrase) return read_key_file(options.file);
  return ask_passphrase(name, key_age == KeyAge::kNew ? Asking::kTwice : Asking::kOnce);
}

std::optional<int64_t> whole_number(const std::string& text) {
  int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  if (std::to_string(value) != text) return std::nullopt;
  return value;
}

void Command::argument(const std::string& name, std::string& target, const std::string& text,
                       Emptiness emptiness) {
  CLI::Option* const argument = add_argument(*app_, name, target, text)->required();
  if (emptiness == Emptiness::kRefused) argument->check(not_empty());
}

void Command::argument(const std::string& name, int64_t& target, const std::string& text) {
  add_argument(*app_, name, target, text)->required()->check(id_of_message());
}

void Command::arguments(const std::string& name, std::vector<std::string>& target,
                        const std::string& text, Presence presence) {
  add_argument(*app_, name, target, text)->required(presence == Presence::kRequired);
}

CLI::Option* Command::flag(const std::string& name, bool& target, const std::string& text) {
  return app_->add_flag(name, target, text);
}

CLI::Option* Command::option(const std::string& name, const std::string& value, std::string& target,
                             const std::string& text, Presence presence) {
  return add_option(*app_, name, value, target, text)
      ->required(presence == Presence::kRequired)
      ->check(not_empty());
}

CLI::Option* Command::option(const std::string& name, const std::string& value,
                             std::optional<std::string>& target, const std::string& text) {
  return add_option(*app_, name, value, target, text);
}

CLI::Option* Command::option(const std::string& name, const std::string& value,
                             std::vector<std::string>& target, const std::string& text) {
  return add_option(*app_, name, value, target, text)->check(not_empty());
}

CLI::Option* Command::number(const std::string& name, const std::string& value, int32_t& target,
                             const std::string& text) {
  return add_number(*app_, name, value, target, text);
}

CLI::Option* Command::number(const std::string& name, const std::string& value, std::size_t& target,
                             const std::string& text, int64_t largest) {
  return add_number(*app_, name, value, target, text, largest);
}

CLI::Option* Command::id(const std::string& name, const std::string& value,
                         std::optional<int64_t>& target, const std::string& text) {
  return add_option(*app_, name, value, target, text)->check(id_of_message());
}

CLI::Option* Command::choice(const std::string& name, const std::string& value, std::string& target,
                             const std::vector<std::string>& choices, const std::string& text) {
  return add_option(*app_, name, value, target, text)->required()->check(CLI::IsMember(choices));
}

CLI::Option* Command::choices(const std::string& name, const std::string& value,
                              std::vector<std::string>& target,
                              const std::vector<std::string>& choices, const std::string& text) {
  return add_option(*app_, name, value, target, text)
      ->delimiter(',')
      ->check(CLI::IsMember(choices));
}

CLI::Option* Command::type(Corvan::SessionType& target, const std::string& text) {
  return add_option(*app_, "--type", "T", target, text + kTypes)
      ->required()
      ->transform(type_of_conversation());
}

CLI::Option* Command::types(std::vector<Corvan::SessionType>& target, const std::string& text) {
  return add_option(*app_, "--type", "T", target, text + kTypes)->transform(type_of_conversation());
}

void Command::key(KeyOptions& target, const std::string& prefix, const std::string& what) {
  const std::string begin = prefix.empty() ? "--" : "--" + prefix + "-";
  CLI::Option* const file =
      option(begin + "key-file", "FILE", target.file,
             "the key of " + what + ", 64 hexadecimal digits; - for standard input");
  CLI::Option* const passphrase =
      flag(begin + "passphrase", target.passphrase, "ask for the passphrase of " + what);
  exclude(passphrase, file);
}

void Command::exclude(Option option, Option other) {
  option->excludes(other);
}

void Command::need(Option option, Option other) {
  option->needs(other);
}

CommandLine::CommandLine()
    : app_(std::make_unique<CLI::App>(
          "Imports conversation logs into a message store; shows, checks, repairs, rescues, exports "
          "and encrypts stores.",
          "corvan")) {
  app_->formatter(std::make_shared<HelpFormatter>());
  app_->footer(kFooter);
  app_->set_version_flag(
      "--version", "corvan " CORVAN_VERSION " (SQLite " + std::string(sqlite3_libversion()) + ")");
  app_->require_subcommand(1);
  Command(*app_).key(key_, "", "the store");  // also before the command
  app_->allow_windows_style_options(false);   // arguments can begin with '/'
  app_->failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
    return "corvan: " + printable(shown_bracket(error.what())) + "; see 'corvan --help'\n";
  });
}

CommandLine::~CommandLine() = default;

Command CommandLine::add_parsed(const std::string& name, const std::string& text,
                                const std::string& footer, const std::function<KeyAge()>& key_age,
                                const std::function<int()>& action) {
  CLI::App* const command = app_->add_subcommand(name, text);
  command->footer(footer);
  command->callback([this, key_age, action] {
    if (key_.is_given()) use_key(key_from(key_, "passphrase", key_age()));
    status_ = action();
  });
  Command added(*command);
  added.key(key_, "", "the store");
  return added;
}

int CommandLine::run(const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // for the parser
  for (std::string& argument : reversed) argument = hidden_bracket(std::move(argument));
  try {
    app_->parse(std::move(reversed));
  } catch (const CLI::ParseError& error) {
    if (app_->exit(error) != 0) return kFailure;
  }
  return status_;
}

}  // namespace corvan_tool
