#include "tools/platform/process.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

namespace corvan_tool {

namespace {

[[noreturn]] void end_by(int signal_number) {
  std::signal(signal_number, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  std::raise(signal_number);
  _exit(128 + signal_number);
}

void wait_for_interrupt(sigset_t signals, InterruptHandler handler) {
  int signal_number = 0;
  if (sigwait(&signals, &signal_number) != 0) return;
  handler.stop();
  handler.remove();
  end_by(signal_number);
}

}  // namespace

void set_up_process() {
  // Writes fail instead, so that unfinished output is removed.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  umask(umask(0) | S_IRWXG | S_IRWXO);  // new files hold messages: only their owner may read them
}

std::vector<std::string> program_arguments(int argc, char** argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

void handle_interrupts(const InterruptHandler& handler) {
  sigset_t signals;
  sigemptyset(&signals);
  bool any = false;
  for (const int signal_number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    struct sigaction action = {};
    // Ignored, for example under nohup.
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    sigaddset(&signals, signal_number);
    any = true;
  }
  if (!any) return;
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(wait_for_interrupt, signals, handler).detach();
}

bool close_output() {
  return close(STDOUT_FILENO) == 0 || errno == EBADF;
}

}  // namespace corvan_tool
