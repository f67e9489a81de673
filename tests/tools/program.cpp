#include "tests/tools/program.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string_view>

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

void set_permissions(const std::string& path, unsigned mode) {
  std::filesystem::permissions(std::filesystem::u8path(path),
                               static_cast<std::filesystem::perms>(mode));
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
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::u8path(folder))) {
    const std::string path = entry.path().u8string();
    const std::string content = entry.is_regular_file() ? read_file(path) : "not a file";
    result[entry.path().filename().u8string()] = modification_time(path) + " " + content;
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

ToolTest::ToolTest() : store_(folder.file("store")) {}

void ToolTest::TearDown() {
  EXPECT_EQ(listing(copies()), Listing{}) << "temporary files were left";
}

pid_t ToolTest::start(const Arguments& arguments, int out, int in) {
  Launch launch;
  launch.words = program();
  launch.words.insert(launch.words.end(), arguments.begin(), arguments.end());
  launch.variables = temporary_files_in(copies());
  launch.variables.insert(launch.variables.end(), variables.begin(), variables.end());
  launch.in = in < 0 ? open_input(temporary("in")) : in;
  launch.out = out;
  launch.err = create_output(temporary("err"));
  launch.unprivileged = unprivileged;
  launch.largest_file = largest_file;
  launch.most_memory = can_limit_memory() ? most_memory : 0;
  launch.most_seconds =
      most_seconds * (std::string_view(CORVAN_EMULATOR).empty() ? 1 : kEmulatedTimes);
  return start_process(launch);
}

Outcome ToolTest::run(const Arguments& arguments, const std::string& input) {
  write_file(temporary("in"), input);
  Outcome outcome;
  outcome.status = wait(start(arguments, create_output(temporary("out"))));
  outcome.out = read_file(temporary("out"));
  outcome.err = read_err();
  return outcome;
}

int ToolTest::run_without_output(const Arguments& arguments) {
  write_file(temporary("in"), "");
  return wait(start(arguments, full_output()));
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
  return has_memory_limit() && std::string_view(CORVAN_EMULATOR).empty();
#endif
}

void ToolTest::make_read_only() {
  set_permissions(file(), 0444);
  set_permissions(store(), 0555);
  unprivileged = true;
}

void ToolTest::make_writable() {
  set_permissions(store(), 0755);
  set_permissions(file(), 0644);
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
