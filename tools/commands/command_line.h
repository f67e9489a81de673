// The command line: commands, their arguments, options and help. Only command_line.cpp includes the
// parser, whose header takes long to compile.

#ifndef TOOLS_COMMANDS_COMMAND_LINE_H_
#define TOOLS_COMMANDS_COMMAND_LINE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addons/encryption/store_keys.h"
#include "db/cv_db_records.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace corvan_tool {

// The 64-bit number that `text` is in plain decimal; nothing if it is not one.
std::optional<int64_t> whole_number(const std::string& text);

// Whether a store has the key already, or the command gives it to the store; kNewWithNewStore if
// the command may create the store. A new passphrase is asked for twice.
enum class KeyAge { kPresent, kNew, kNewWithNewStore };

// kNewWithNewStore becomes kNew if the folder has no store, otherwise kPresent.
KeyAge key_age_in(const std::string& folder, KeyAge age);

// Where a key comes from: a file, or a passphrase from the terminal.
struct KeyOptions {
  std::string file;
  bool passphrase = false;

  bool is_given() const { return passphrase || !file.empty(); }
};

// Reads or asks for the key. `name` is what a passphrase is called in the question. Throws
// ToolError if SQLite has no cipher, or the key cannot be read.
Corvan::StoreKey key_from(const KeyOptions& options, const std::string& name, KeyAge key_age);

enum class Presence { kOptional, kRequired };
enum class Emptiness { kRefused, kAllowed };

// One command. Each member adds an argument or an option with its text for the help. Targets keep
// their values if the option is not given, and must live as long as the CommandLine. Invalid values
// are reported before the command runs.
class Command {
 public:
  using Option = CLI::Option*;

  explicit Command(CLI::App& app) : app_(&app) {}

  // Arguments are expected in the order in which they are added.
  void argument(const std::string& name, std::string& target, const std::string& text,
                Emptiness emptiness = Emptiness::kRefused);
  // A message's id: any whole number, since other programs may have written the store.
  void argument(const std::string& name, int64_t& target, const std::string& text);
  // Any number of further arguments.
  void arguments(const std::string& name, std::vector<std::string>& target, const std::string& text,
                 Presence presence);

  Option flag(const std::string& name, bool& target, const std::string& text);

  // A text that is not empty. `value` is the name of the option's value in the help.
  Option option(const std::string& name, const std::string& value, std::string& target,
                const std::string& text, Presence presence = Presence::kOptional);
  // A text that may be empty.
  Option option(const std::string& name, const std::string& value,
                std::optional<std::string>& target, const std::string& text);
  // Texts that are not empty; the option may be repeated.
  Option option(const std::string& name, const std::string& value, std::vector<std::string>& target,
                const std::string& text);

  // Whole numbers from 1 to `largest`, or to the largest that the target can hold.
  Option number(const std::string& name, const std::string& value, int32_t& target,
                const std::string& text);
  Option number(const std::string& name, const std::string& value, std::size_t& target,
                const std::string& text, int64_t largest);

  // A message's id.
  Option id(const std::string& name, const std::string& value, std::optional<int64_t>& target,
            const std::string& text);

  // One of the choices, required; or several, separated by commas.
  Option choice(const std::string& name, const std::string& value, std::string& target,
                const std::vector<std::string>& choices, const std::string& text);
  Option choices(const std::string& name, const std::string& value,
                 std::vector<std::string>& target, const std::vector<std::string>& choices,
                 const std::string& text);

  // The option --type: a type of conversation, required; or several, by repeating the option.
  Option type(Corvan::SessionType& target, const std::string& text);
  Option types(std::vector<Corvan::SessionType>& target, const std::string& text);

  // The options that name a key: --key-file and --passphrase, or with a prefix --PREFIX-key-file
  // and so on. `what` describes the key in the help.
  void key(KeyOptions& target, const std::string& prefix, const std::string& what);

  // Refuses `option` together with, or without, the other one.
  static void exclude(Option option, Option other);
  static void need(Option option, Option other);

 private:
  CLI::App* app_;
};

// The commands of the program.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  ~CommandLine();

  // Adds a command with the texts of its help. Its Options live as long as this object. If the
  // command line names the command, `action` is called with them and returns the exit status.
  // Before that, the key that the command line names becomes used_key(). Options must have the
  // members `folder`, for the required argument FOLDER, and `json`, for
  // --json.
  template <typename Options>
  struct Added {
    Command command;
    Options& options;
  };
  template <typename Options>
  Added<Options> add(const std::string& name, const std::string& text, const std::string& footer,
                     int (*action)(const Options&),
                     const std::string& folder = "the store's folder",
                     KeyAge key_age = KeyAge::kPresent) {
    const auto options = std::make_shared<Options>();
    Added<Options> added = add_command(name, text, footer, action, options, [options, key_age] {
      return key_age_in(options->folder, key_age);
    });
    added.command.argument("FOLDER", added.options.folder, folder);
    return added;
  }

  // The same for a command without FOLDER as its first argument.
  template <typename Options>
  Added<Options> add_without_folder(const std::string& name, const std::string& text,
                                    const std::string& footer, int (*action)(const Options&),
                                    KeyAge key_age = KeyAge::kPresent) {
    return add_command(name, text, footer, action, std::make_shared<Options>(),
                       [key_age] { return key_age; });
  }

  // Parses the arguments, without the program's name, and runs the command. Returns the exit
  // status.
  int run(const std::vector<std::string>& arguments);

 private:
  template <typename Options>
  Added<Options> add_command(const std::string& name, const std::string& text,
                             const std::string& footer, int (*action)(const Options&),
                             const std::shared_ptr<Options>& options,
                             const std::function<KeyAge()>& key_age) {
    Command command =
        add_parsed(name, text, footer, key_age, [action, options] { return action(*options); });
    command.flag("--json", options->json, "write JSON for programs");
    return {command, *options};
  }
  Command add_parsed(const std::string& name, const std::string& text, const std::string& footer,
                     const std::function<KeyAge()>& key_age, const std::function<int()>& action);

  const std::unique_ptr<CLI::App> app_;
  KeyOptions key_;
  int status_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_COMMAND_LINE_H_
