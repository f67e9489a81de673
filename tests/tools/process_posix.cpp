#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string_view>

#include "tests/support/privileges.h"
#include "tests/tools/process.h"

namespace corvan_test {

namespace {

int checked(int descriptor) {
  if (descriptor < 0) throw std::runtime_error("cannot open a file");
  return descriptor;
}

std::string_view name_of(std::string_view variable) {
  return variable.substr(0, variable.find('='));
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> all;
  all.reserve(texts.size() + 1);
  for (std::string& text : texts) all.push_back(text.data());
  all.push_back(nullptr);
  return all;
}

std::vector<std::string> environment(const std::vector<std::string>& added) {
  std::vector<std::string> all = added;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const auto replaces = [variable](const std::string& one) {
      return name_of(one) == name_of(*variable);
    };
    if (std::none_of(added.begin(), added.end(), replaces)) all.emplace_back(*variable);
  }
  return all;
}

void limit(int resource, std::uint64_t most) {
  if (most == 0) return;
  const rlimit both = {static_cast<rlim_t>(most), static_cast<rlim_t>(most)};
  if (setrlimit(static_cast<decltype(RLIMIT_FSIZE)>(resource), &both) != 0) _exit(127);
}

[[noreturn]] void become(const Launch& launch, char* const* argv, char* const* variables) {
  if (dup2(launch.in, STDIN_FILENO) < 0 || dup2(launch.out, STDOUT_FILENO) < 0 ||
      dup2(launch.err, STDERR_FILENO) < 0) {
    _exit(127);
  }
  limit(RLIMIT_FSIZE, launch.largest_file);
  limit(RLIMIT_AS, launch.most_memory);
  alarm(launch.most_seconds);
  // Opened first: the program may be in a folder of another user that only root can enter.
  const int executable = open(argv[0], O_PATH | O_CLOEXEC);
  if (launch.unprivileged && !drop_privileges()) _exit(127);
  fexecve(executable, argv, variables);
  _exit(127);
}

}  // namespace

pid_t start_process(const Launch& launch) {
  // Allocated before the fork: at the fork, another thread may hold the allocator's locks.
  std::vector<std::string> words = launch.words;
  std::vector<std::string> variables = environment(launch.variables);
  const std::vector<char*> argv = pointers(words);
  const std::vector<char*> envp = pointers(variables);
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) become(launch, argv.data(), envp.data());
  for (const int descriptor : {launch.in, launch.out, launch.err}) close(descriptor);
  return pid;
}

int wait_for_process(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait");
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool kill_process(pid_t pid) {
  return kill(pid, SIGKILL) == 0 && wait_for_process(pid) == -SIGKILL;
}

const std::vector<int>& interrupts() {
  static const std::vector<int> all = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};
  return all;
}

void interrupt_process(pid_t pid, int interrupt) {
  kill(pid, interrupt);
}

int interrupted_status(int interrupt) {
  return -interrupt;
}

bool has_memory_limit() {
  return true;
}

std::uint64_t most_memory_used() {
  rusage usage = {};
  getrusage(RUSAGE_CHILDREN, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

Pipe make_pipe() {
  int ends[2] = {};
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  return {ends[0], ends[1]};
}

void write_all(int descriptor, const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto size = write(descriptor, text.data() + at, text.size() - at);
    if (size <= 0) throw std::runtime_error("cannot write to a pipe");
    at += static_cast<std::size_t>(size);
  }
}

int open_input(const std::string& path) {
  return checked(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600));
}

int create_output(const std::string& path) {
  return checked(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

int null_output() {
  return checked(open("/dev/null", O_WRONLY | O_CLOEXEC));
}

int full_output() {
  return checked(open("/dev/full", O_WRONLY | O_CLOEXEC));
}

int full_output_error() {
  return ENOSPC;
}

std::vector<std::string> temporary_files_in(const std::string& folder) {
  return {"TMPDIR=" + folder};
}

std::string modification_time(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) throw std::runtime_error("cannot look at a file");
  return std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

void make_fifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make a FIFO");
}

}  // namespace corvan_test
