// Prints the environment that the figures depend on.

#include <sqlite3.h>
#include <sys/utsname.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/support/options.h"
#include "bench/support/report.h"

namespace {

using corvan_bench::Report;

std::string processor() {
  std::ifstream in("/proc/cpuinfo");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

// Type and options of the file system of the stores.
std::string file_system(const std::string& folder) {
  std::ifstream in("/proc/self/mounts");
  std::string device;
  std::string at;
  std::string type;
  std::string options;
  std::string rest;
  std::string found = "unknown";
  std::size_t longest = 0;
  while (in >> device >> at >> type >> options && std::getline(in, rest)) {
    const bool is_above = at == "/" || folder == at || folder.rfind(at + "/", 0) == 0;
    if (!is_above || at.size() < longest) continue;
    longest = at.size();
    found = type;
    found += " (" + options + ")";
  }
  return found;
}

std::string sqlite_options() {
  std::string options;
  for (int i = 0; sqlite3_compileoption_get(i) != nullptr; ++i) {
    if (!options.empty()) options += ' ';
    options += sqlite3_compileoption_get(i);
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Report report("environment", corvan_bench::parse_options(argc, argv));
    utsname system = {};
    uname(&system);
    const std::string folder = std::filesystem::temp_directory_path().string();
    report.table("Environment", {"", "value"},
                 {{"processor", processor()},
                  {"processors", std::to_string(std::thread::hardware_concurrency())},
                  {"kernel", std::string(system.sysname) + " " + system.release},
                  {"compiler", CORVAN_COMPILER},
                  {"build type", CORVAN_BUILD_TYPE},
                  {"SQLite", sqlite3_libversion()},
                  {"SQLite's options", sqlite_options()},
                  {"file system of the stores", file_system(folder)}});
    return report.finish();
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
