// How commands and their options are put on the command line. Only the units that define commands
// include this: the parser's header takes long to compile.

#ifndef TOOLS_COMMAND_LINE_H_
#define TOOLS_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>

namespace corvan_tool {

// A text that is not empty.
CLI::Validator not_empty();

// A whole number from 1 on in plain decimal.
CLI::Validator number_up_to(int64_t largest);

// A kind's name, in whatever case, or its number; the text becomes the number.
CLI::Validator kind_of_conversation();

// The option --type, whose help is `text` and the kinds that there are. `target` holds one kind, or
// a list of them when the option may be given again.
constexpr const char* kKinds = "private, group, chatroom, reception, system, or 1 to 5";
template <typename Target>
CLI::Option* add_kind(CLI::App* command, Target& target, const std::string& text) {
  return command->add_option("--type", target, text + kKinds)
      ->transform(kind_of_conversation())
      ->allow_extra_args(false)
      ->option_text("T");
}

// The commands of the program.
class CommandLine {
 public:
  CommandLine();

  // A command with the texts of its help, whose Options live as long as this object. `action`
  // is called with them when the command line names the command; what it returns is the exit
  // status. Options has a `folder`, the required argument FOLDER, and a `json`, the flag --json.
  template <typename Options>
  struct Command {
    CLI::App* app;
    Options& options;
  };
  template <typename Options>
  Command<Options> add(const std::string& name, const std::string& text, const std::string& footer,
                       int (*action)(const Options&)) {
    const Command<Options> command = add_without_folder(name, text, footer, action);
    command.app->add_option("FOLDER", command.options.folder, "the store's folder")
        ->required()
        ->check(not_empty());
    return command;
  }

  // The same for a command whose first argument is another one.
  template <typename Options>
  Command<Options> add_without_folder(const std::string& name, const std::string& text,
                                      const std::string& footer, int (*action)(const Options&)) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app_.add_subcommand(name, text);
    command->footer(footer);
    command->add_flag("--json", options->json, "write JSON for programs");
    command->callback([this, action, options] { status_ = action(*options); });
    return {command, *options};
  }

  // Carries out what the arguments say: the exit status.
  int run(int argc, char** argv);

 private:
  CLI::App app_;
  int status_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_COMMAND_LINE_H_
