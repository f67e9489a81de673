// How commands and their options are put on the command line. The parser itself stays in one unit:
// its header takes longer to compile than any command.

#ifndef TOOLS_COMMANDS_COMMAND_LINE_H_
#define TOOLS_COMMANDS_COMMAND_LINE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace corvan_tool {

// The number of 64 bits that a text is in plain decimal.
std::optional<int64_t> whole_number(const std::string& text);

enum class Presence { kOptional, kRequired };
enum class Emptiness { kRefused, kAllowed };

// A command on the command line. Each member adds an argument or an option with its text for the
// help; a target keeps its value when it is not given, and must live as long as the CommandLine.
// What does not fit is told to the user before the command is run.
class Command {
 public:
  using Option = CLI::Option*;

  explicit Command(CLI::App& app) : app_(&app) {}

  // Arguments stand in the order in which they are added.
  void argument(const std::string& name, std::string& target, const std::string& text,
                Emptiness emptiness = Emptiness::kRefused);
  // A message's id: a whole number, since a store that something else has written can hold any.
  void argument(const std::string& name, int64_t& target, const std::string& text);
  // The last arguments, any number of them.
  void arguments(const std::string& name, std::vector<std::string>& target, const std::string& text,
                 Presence presence);

  Option flag(const std::string& name, bool& target, const std::string& text);

  // `value` is what the help calls the option's value. A text that is not empty.
  Option option(const std::string& name, const std::string& value, std::string& target,
                const std::string& text, Presence presence = Presence::kOptional);
  // A text that may be empty.
  Option option(const std::string& name, const std::string& value,
                std::optional<std::string>& target, const std::string& text);
  // Texts that are not empty: the option may be given again.
  Option option(const std::string& name, const std::string& value, std::vector<std::string>& target,
                const std::string& text);

  // Whole numbers from 1 to the largest that the target, or the caller, takes.
  Option number(const std::string& name, const std::string& value, int32_t& target,
                const std::string& text);
  Option number(const std::string& name, const std::string& value, std::size_t& target,
                const std::string& text, int64_t largest);

  // A message's id, likewise.
  Option id(const std::string& name, const std::string& value, std::optional<int64_t>& target,
            const std::string& text);

  // One of the choices, which must be given; or several, with commas between them.
  Option choice(const std::string& name, const std::string& value, std::string& target,
                const std::vector<std::string>& choices, const std::string& text);
  Option choices(const std::string& name, const std::string& value,
                 std::vector<std::string>& target, const std::vector<std::string>& choices,
                 const std::string& text);

  // The option --type: a kind of conversation, which must be given; or several, by giving it again.
  Option kind(Corvan::SessionType& target, const std::string& text);
  Option kinds(std::vector<Corvan::SessionType>& target, const std::string& text);

  // `option` is refused with, or without, the other one.
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

  // A command with the texts of its help, whose Options live as long as this object. `action`
  // is called with them when the command line names the command; what it returns is the exit
  // status. Options has a `folder`, the required argument FOLDER, and a `json`, the flag --json.
  template <typename Options>
  struct Added {
    Command command;
    Options& options;
  };
  template <typename Options>
  Added<Options> add(const std::string& name, const std::string& text, const std::string& footer,
                     int (*action)(const Options&),
                     const std::string& folder = "the store's folder") {
    Added<Options> added = add_without_folder(name, text, footer, action);
    added.command.argument("FOLDER", added.options.folder, folder);
    return added;
  }

  // The same for a command whose first argument is another one.
  template <typename Options>
  Added<Options> add_without_folder(const std::string& name, const std::string& text,
                                    const std::string& footer, int (*action)(const Options&)) {
    const auto options = std::make_shared<Options>();
    Command command =
        add_command(name, text, footer, [action, options] { return action(*options); });
    command.flag("--json", options->json, "write JSON for programs");
    return {command, *options};
  }

  // Carries out what the arguments say: the exit status.
  int run(int argc, char** argv);

 private:
  Command add_command(const std::string& name, const std::string& text, const std::string& footer,
                      const std::function<int()>& action);

  const std::unique_ptr<CLI::App> app_;
  int status_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_COMMAND_LINE_H_
