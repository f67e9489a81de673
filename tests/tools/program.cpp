#include "tests/tools/program.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "tests/support/privileges.h"

namespace corvan_test {

// The checkers of memory and threads reserve more address space than any limit leaves.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CORVAN_TEST_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define CORVAN_TEST_CHECKED 1
#endif
#endif

namespace {

// How many times longer a program may take under an emulator.
constexpr unsigned kEmulatedTimes = 10;

// Opens a file as a standard descriptor of the program that is about to run.
void redirect(const std::string& path, int flags, int descriptor) {
  const int fd = open(path.c_str(), flags, 0600);
  if (fd < 0 || dup2(fd, descriptor) < 0) _exit(127);
  close(fd);
}

}  // namespace

Arguments program() {
  Arguments words;
  std::istringstream emulator(CORVAN_EMULATOR);
  for (std::string word; std::getline(emulator, word, ' ');) words.push_back(word);
  words.emplace_back(CORVAN_PROGRAM);
  return words;
}

Listing listing(const std::string& folder) {
  Listing result;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    struct stat status = {};
    if (stat(entry.path().c_str(), &status) != 0) throw std::runtime_error("cannot look at a file");
    const std::string content =
        entry.is_regular_file() ? read_file(entry.path().string()) : "not a file";
    result[entry.path().filename().string()] = std::to_string(status.st_mtim.tv_sec) + "." +
                                               std::to_string(status.st_mtim.tv_nsec) + " " +
                                               content;
  }
  return result;
}

WriteAhead::WriteAhead(const std::string& file, const std::string& sql) {
  const std::string all = "pragma journal_mode=wal;pragma wal_autocheckpoint=0;" + sql;
  if (sqlite3_open(file.c_str(), &db_) != SQLITE_OK ||
      sqlite3_exec(db_, all.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    const std::string why = sqlite3_errmsg(db_);
    sqlite3_close(db_);
    throw std::runtime_error(why);
  }
}

WriteAhead::~WriteAhead() {
  sqlite3_close(db_);
}

std::string line(const Json& changes) {
  Json message = {{"session_id", "room"},      {"session_type", 2}, {"object_name", "CV:TxtMsg"},
                  {"sender", "u01"},           {"content", "hi"},   {"is_receive", true},
                  {"sent_time", 1700000000000}};
  for (const auto& [key, value] : changes.items()) {
    if (value.is_null()) {
      message.erase(key);
    } else {
      message[key] = value;
    }
  }
  return message.dump() + "\n";
}

Rows keys(const Json& object) {
  Rows names;
  for (const auto& [key, value] : object.items()) names.push_back(key);
  return names;
}

std::string written_to_terminal(int terminal, int other_end) {
  const std::string end = "<end>";
  if (write(other_end, end.data(), end.size()) != static_cast<ssize_t>(end.size())) {
    throw std::runtime_error("cannot write to a terminal");
  }
  std::string text;
  std::array<char, 4096> part{};
  while (text.size() < end.size() || text.substr(text.size() - end.size()) != end) {
    const ssize_t size = read(terminal, part.data(), part.size());
    if (size <= 0) throw std::runtime_error("cannot read from a terminal");
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  text.resize(text.size() - end.size());
  return text;
}

ToolTest::ToolTest() : store_(folder.file("store")) {}

void ToolTest::TearDown() {
  EXPECT_EQ(listing(copies()), Listing{}) << "temporary files were left";
}

pid_t ToolTest::start(const Arguments& arguments, int out) {
  std::vector<std::string> texts = program();
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);
  // Allocated before the fork: at the fork, another thread may hold the allocator's locks.
  std::string temporary_files = "TMPDIR=" + copies();
  std::vector<char*> environment = {temporary_files.data()};
  for (std::string& variable : variables) environment.push_back(variable.data());
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (std::string_view(*variable).substr(0, 7) != "TMPDIR=") environment.push_back(*variable);
  }
  environment.push_back(nullptr);
  const std::string in = temporary("in");
  const std::string err = temporary("err");

  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) {
    redirect(in, O_RDONLY | O_CREAT, STDIN_FILENO);
    redirect(err, O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
    if (dup2(out, STDOUT_FILENO) < 0) _exit(127);
    close(out);
    if (largest_file > 0) {
      const rlimit limit = {largest_file, largest_file};
      if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(127);
    }
    if (most_memory > 0 && can_limit_memory()) {
      const rlimit limit = {most_memory, most_memory};
      if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(127);
    }
    alarm(most_seconds * (std::string_view(CORVAN_EMULATOR).empty() ? 1 : kEmulatedTimes));
    // Opened first: the program may be in a folder of another user that only root can enter.
    const int executable = open(argv[0], O_PATH | O_CLOEXEC);
    if (unprivileged && !drop_privileges()) _exit(127);
    fexecve(executable, argv.data(), environment.data());
    _exit(127);
  }
  close(out);
  return pid;
}

int ToolTest::wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait");
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

Outcome ToolTest::run(const Arguments& arguments, const std::string& input) {
  write_file(temporary("in"), input);
  const int out = open(temporary("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (out < 0) throw std::runtime_error("cannot make a file");
  Outcome outcome;
  outcome.status = wait(start(arguments, out));
  outcome.out = read_file(temporary("out"));
  outcome.err = read_err();
  return outcome;
}

int ToolTest::run_without_output(const Arguments& arguments) {
  write_file(temporary("in"), "");
  return wait(start(arguments, open("/dev/full", O_WRONLY | O_CLOEXEC)));
}

std::optional<std::string> ToolTest::terminal_output(const Arguments& arguments,
                                                     unsigned short columns) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) return std::nullopt;
  EXPECT_EQ(grantpt(terminal), 0);
  EXPECT_EQ(unlockpt(terminal), 0);
  const int out = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  winsize window = {};
  window.ws_row = 24;
  window.ws_col = columns;
  EXPECT_EQ(ioctl(out, TIOCSWINSZ, &window), 0);
  const int keep = dup(out);  // closing the last end would discard the text
  EXPECT_EQ(wait(start(arguments, out)), 0);
  std::string text = written_to_terminal(terminal, keep);
  close(keep);
  close(terminal);
  return text;
}

std::string ToolTest::output(const Arguments& arguments) {
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

Json ToolTest::json(const Arguments& arguments) {
  return Json::parse(output(arguments));
}

bool ToolTest::can_limit_memory() {
#ifdef CORVAN_TEST_CHECKED
  return false;
#else
  return std::string_view(CORVAN_EMULATOR).empty();
#endif
}

void ToolTest::make_read_only() {
  ASSERT_EQ(chmod(file().c_str(), 0444), 0);
  ASSERT_EQ(chmod(store().c_str(), 0555), 0);
  unprivileged = true;
}

void ToolTest::make_writable() {
  ASSERT_EQ(chmod(store().c_str(), 0755), 0);
  ASSERT_EQ(chmod(file().c_str(), 0644), 0);
  unprivileged = false;
}

std::string ToolTest::write(const std::string& name, const std::string& content) {
  const std::string path = folder.file(name);
  write_file(path, content);
  return path;
}

void ToolTest::import(const std::string& lines) {
  const Outcome outcome = run({"import", store(), "--user", "me", "-"}, lines);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
}

}  // namespace corvan_test
