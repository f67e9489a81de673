// What the tests need of the system to run programs. process_posix.cpp and process_windows.cpp
// implement it.

#ifndef TESTS_TOOLS_PROCESS_H_
#define TESTS_TOOLS_PROCESS_H_

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace corvan_test {

using Arguments = std::vector<std::string>;

// How to start a program. The descriptors are closed when it has started.
struct Launch {
  Arguments words;                     // the program's path and its arguments
  std::vector<std::string> variables;  // added to the environment, as "NAME=value"
  int in = -1;
  int out = -1;
  int err = -1;
  bool unprivileged = false;       // POSIX: without the capabilities of root
  std::uint64_t largest_file = 0;  // POSIX: if above 0, the program cannot write larger files
  std::uint64_t most_memory = 0;   // POSIX: if above 0, the limit of the address space
  unsigned most_seconds = 0;       // if above 0, the program is ended after that time
};

// Returns the process id. Throws std::runtime_error if the program cannot be started, or if the
// system does not have a limit that is asked for.
pid_t start_process(const Launch& launch);

// Waits for the end and returns the exit status; below 0, what ended the program.
int wait_for_process(pid_t pid);

// Ends the program at once, so that it cannot clean up, and waits for its end. Returns false if it
// had ended on its own.
bool kill_process(pid_t pid);

// The interrupts that a user can send: signals, or Ctrl-C on Windows.
const std::vector<int>& interrupts();
void interrupt_process(pid_t pid, int interrupt);
// What wait_for_process() returns if this interrupt ended the program.
int interrupted_status(int interrupt);

// Whether programs can be started with most_memory.
bool has_memory_limit();

// The most memory in bytes that any program had that was started and has ended.
std::uint64_t most_memory_used();

// Descriptors. The started program inherits only those of its Launch.
struct Pipe {
  int read_end = -1;
  int write_end = -1;
};
Pipe make_pipe();
void write_all(int descriptor, const std::string& text);
int open_input(const std::string& path);     // created if it is missing
int create_output(const std::string& path);  // emptied if it exists
int null_output();                           // takes everything
int full_output();                           // every write fails with full_output_error()
int full_output_error();

// Variables that make `folder` the program's folder for temporary files.
std::vector<std::string> temporary_files_in(const std::string& folder);

// The time when a file's content was changed, as precisely as the system keeps it.
std::string modification_time(const std::string& path);

// Throws std::runtime_error on Windows, which has no FIFOs in folders.
void make_fifo(const std::string& path);

}  // namespace corvan_test

#endif  // TESTS_TOOLS_PROCESS_H_
