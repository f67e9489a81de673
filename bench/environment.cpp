// Prints the environment that the figures depend on.

#include <sys/utsname.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/support/store_module.h"

namespace {

using corvan_bench::LinkedSqlite;
using corvan_bench::module_file;
using corvan_bench::ModuleSqlite;
using corvan_bench::Report;
using corvan_bench::StoreModule;

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

// The SQLite that is compiled from an amalgamation, if modules with it were built.
LinkedSqlite built_sqlite() {
  const std::string file = module_file("floor_db", ModuleSqlite::kBuilt);
  if (file.empty()) return {"none: CORVAN_BENCH_AMALGAMATION names no folder", "", nullptr};
  return StoreModule(file).sqlite();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Report report("environment", corvan_bench::parse_options(argc, argv));
    utsname system = {};
    uname(&system);
    const LinkedSqlite installed = corvan_bench::linked_sqlite();
    const LinkedSqlite built = built_sqlite();
    const std::string folder = std::filesystem::temp_directory_path().string();
    report.table("Environment", {"", "value"},
                 {{"processor", processor()},
                  {"processors", std::to_string(std::thread::hardware_concurrency())},
                  {"kernel", std::string(system.sysname) + " " + system.release},
                  {"compiler", CORVAN_COMPILER},
                  {"build type", CORVAN_BUILD_TYPE},
                  {"SQLite, installed", installed.version},
                  {"its options", installed.options},
                  {"SQLite, built", built.version},
                  {"its options", built.options},
                  {"file system of the stores", file_system(folder)}});
    return report.finish();
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
