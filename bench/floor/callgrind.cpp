#include "bench/floor/callgrind.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace corvan_bench {

namespace {

// A dump contains the name that was given to callgrind, and the number of instructions.
constexpr const char* kTrigger = "desc: Trigger: Client Request: ";
constexpr const char* kTotals = "totals: ";

// The rest of the line after `prefix`; empty if the line does not begin with it.
std::string after(const std::string& prefix, const std::string& line) {
  return line.compare(0, prefix.size(), prefix) == 0 ? line.substr(prefix.size()) : "";
}

}  // namespace

void count_instructions(const std::string& name, const std::function<void()>& function) {
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  function();
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  CALLGRIND_STOP_INSTRUMENTATION;
}

std::map<std::string, int64_t> run_under_callgrind(const std::string& folder,
                                                   const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"valgrind",
                                      "--tool=callgrind",
                                      "--instr-atstart=no",
                                      "--callgrind-out-file=" + folder + "count",
                                      "--log-file=" + folder + "log",
                                      std::filesystem::read_symlink("/proc/self/exe").string()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (std::string& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);

  pid_t child = 0;
  if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("valgrind cannot be started");
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error("the run under valgrind failed");
  }

  std::map<std::string, int64_t> counts;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().stem() != "count") continue;
    std::ifstream dump(entry.path());
    std::string name;
    std::string line;
    while (std::getline(dump, line)) {
      if (name.empty()) name = after(kTrigger, line);
      const std::string totals = after(kTotals, line);
      if (!name.empty() && !totals.empty()) counts[name] = std::stoll(totals);
    }
  }
  return counts;
}

}  // namespace corvan_bench
