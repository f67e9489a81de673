// What the system sets up for a process, and how it ends one.

#ifndef TOOLS_PLATFORM_PROCESS_H_
#define TOOLS_PLATFORM_PROCESS_H_

#include <string>
#include <vector>

namespace corvan_tool {

// Call this first. Failed writes do not end the process, standard input and output are binary, and
// a terminal shows UTF-8 and understands escape sequences. On POSIX, new files are private.
void set_up_process();

// The arguments of main() without the program's name, in UTF-8.
std::vector<std::string> program_arguments(int argc, char** argv);

// What to do when the process is interrupted: the functions are called once, in this order, on
// another thread.
struct InterruptHandler {
  // From now on, no path is added or forgotten.
  void (*stop)();
  // Returns what will be removed. Not called on POSIX, where open files can be removed.
  std::vector<std::string> (*paths)();
  // Removes it.
  void (*remove)();
};

// From now on, SIGHUP, SIGINT, SIGQUIT and SIGTERM, or Ctrl-C, Ctrl-Break and closing the console,
// call the handler before they end the process as they do by default. Signals that were ignored
// when the program started stay ignored. Call this once, before another thread starts.
void handle_interrupts(const InterruptHandler& handler);

// Closes standard output. Returns false if that fails: some file systems report a failed write only
// then.
bool close_output();

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_PROCESS_H_
