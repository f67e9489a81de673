// Runs the tool as its users do, and helpers that its tests share.

#ifndef TESTS_TOOLS_PROGRAM_H_
#define TESTS_TOOLS_PROGRAM_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"
#include "tests/tools/process.h"

namespace corvan_test {

using Json = nlohmann::ordered_json;

struct Outcome {
  int status = -1;  // as wait_for_process() returns it
  std::string out;
  std::string err;
};

// The program's path, after the emulator's if the machine needs one.
Arguments program();

// A file's content and time of modification, by its name.
using Listing = std::map<std::string, std::string>;
Listing listing(const std::string& folder);

// A connection that stays open in WAL mode and has run some statements. Their changes are only in
// the log.
class WriteAhead {
 public:
  WriteAhead(const std::string& file, const std::string& sql);
  WriteAhead(const WriteAhead&) = delete;
  WriteAhead& operator=(const WriteAhead&) = delete;
  ~WriteAhead();

 private:
  sqlite3* db_ = nullptr;
};

// A line of a log: a received message in the group "room". `changes` replaces members; null removes
// them.
std::string line(const Json& changes);

// The names of an object's members, in their order.
Rows keys(const Json& object);

// Runs the program with a folder for its temporary files, which must be empty after each test.
class ToolTest : public testing::Test {
 protected:
  ToolTest();
  void TearDown() override;

  Outcome run(const Arguments& arguments, const std::string& input = "");

  // Runs the program, expects success and no text on standard error, and returns standard output.
  std::string output(const Arguments& arguments);
  Json json(const Arguments& arguments);

  // Runs the program with a standard output that cannot be written, and returns the exit status.
  // read_err() returns what it wrote to standard error.
  int run_without_output(const Arguments& arguments);

  // What the program writes to a terminal of this width; nothing on systems without
  // pseudo-terminals.
  std::optional<std::string> terminal_output(const Arguments& arguments, unsigned short columns);

  // Starts the program with standard output to `out`, and input from `in` or the file "in" of
  // temporary(). Closes both. Returns the process id.
  pid_t start(const Arguments& arguments, int out, int in = -1);
  static int wait(pid_t pid) { return wait_for_process(pid); }

  // Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content);
  std::string read_err() const { return read_file(temporary("err")); }

  // The store's folder, which is not created, and its file.
  const std::string& store() const { return store_; }
  std::string file() const { return store_ + "/corvan"; }
  Rows rows(const std::string& sql) const { return corvan_test::rows(file(), sql); }
  void plant(const std::string& sql) const { corvan_test::plant(file(), sql); }

  // Imports lines for the user "me" and expects success.
  void import(const std::string& lines);

  std::string temporary(const std::string& name) const { return files_.file(name); }
  const std::string& copies() const { return copies_.path(); }

  // Makes the store and its folder read-only; the program is then run unprivileged. POSIX only.
  void make_read_only();
  void make_writable();

  TemporaryFolder folder;

  // Runs the program without the capabilities of root, who could read and write all files.
  bool unprivileged = false;

  // Variables for the program's environment, as "NAME=value".
  std::vector<std::string> variables;

  // If above 0, the program cannot write files larger than this, as on a full disk.
  std::uint64_t largest_file = 0;

  // If above 0, the program is ended after this many seconds.
  unsigned most_seconds = 0;

  // If above 0, limits the program's address space to this many bytes. Has no effect if
  // can_limit_memory() returns false: under a checker or an emulator, and on Windows.
  std::uint64_t most_memory = 0;
  static bool can_limit_memory();

 private:
  TemporaryFolder files_;   // standard input, output and error
  TemporaryFolder copies_;  // the program's temporary files
  std::string store_;
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_PROGRAM_H_
