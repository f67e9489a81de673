// Commands that only read refuse what is not a readable store, and do not change it.

#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class UnreadableStoreTest : public LookTest {};

TEST_F(UnreadableStoreTest, RefusesAStoreWithADamagedPageThatIsNeeded) {
  import_sample();
  const std::string whole = read_file(file());
  const std::vector<std::pair<std::string, Rows>> needed_by = {
      {"t_message", {"list", "history", "show"}}, {"t_session", {"list", "unread"}}};
  for (const auto& [table, names] : needed_by) {
    write_file(file(), whole);
    const std::string root =
        rows("select rootpage from sqlite_master where name='" + table + "'").at(0);
    std::string bytes = whole;
    bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
    write_file(file(), bytes);
    const Listing before = listing(store());
    std::vector<Arguments> needing = commands(store());
    needing.erase(std::remove_if(needing.begin(), needing.end(),
                                 [&names = names](const Arguments& arguments) {
                                   return std::count(names.begin(), names.end(), arguments[0]) == 0;
                                 }),
                  needing.end());
    ASSERT_EQ(needing.size(), 2 * names.size());
    expect_refused("database disk image is malformed; see 'corvan check' and 'corvan salvage'",
                   needing);
    EXPECT_EQ(listing(store()), before);
  }
}

TEST_F(UnreadableStoreTest, DoesNotDeleteAFileThatIsNotADatabase) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(10000, 'x'));
  const Listing before = listing(store());
  std::vector<Arguments> all = commands(store());
  all.resize(8);  // all but check
  expect_refused(
      "damaged (file is not a database); keep a copy: opening it with the library deletes it; "
      "'corvan salvage' rescues what can be read",
      all);
  const Outcome check = run({"check", store()});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "file is not a database\n");
  const Outcome program = run({"check", store(), "--json"});
  EXPECT_EQ(program.status, 1);
  EXPECT_EQ(Json::parse(program.out),
            Json::parse(R"({"ok":false,"result":"file is not a database"})"));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(UnreadableStoreTest, ReportsATruncatedFileAsDamaged) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += line({{"content", std::string(50, 'x')}});
  import(text);
  const std::string whole = read_file(file());
  for (const std::size_t size :
       {std::size_t{100}, std::size_t{4096}, whole.size() / 2, whole.size() - 4096}) {
    write_file(file(), whole.substr(0, size));
    const Listing before = listing(store());
    const Outcome check = run({"check", store()});
    EXPECT_EQ(check.status, 1) << size << check.err;
    EXPECT_NE(check.out, "ok\n");
    for (const Arguments& arguments : commands(store())) {
      const Outcome outcome = run(arguments);
      EXPECT_GE(outcome.status, 0) << "ended by a signal";
      EXPECT_NE(outcome.status, 127);
    }
    EXPECT_EQ(listing(store()), before);
  }
}

TEST_F(UnreadableStoreTest, RefusesAForeignDatabase) {
  std::filesystem::create_directory(store());
  plant("create table t(x)");
  const Listing before = listing(store());
  expect_refused("a database, but not a message store", commands(store()));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(UnreadableStoreTest, RefusesAnEmptyFile) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  const Listing before = listing(store());
  expect_refused("an empty file, not a message store", commands(store()));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(UnreadableStoreTest, RefusesADatabaseWithoutTables) {
  std::filesystem::create_directory(store());
  plant("create table t(x);drop table t");
  ASSERT_GT(read_file(file()).size(), 0U);
  expect_refused("an empty file, not a message store", commands(store()));
}

TEST_F(UnreadableStoreTest, RefusesAFolderInPlaceOfTheFile) {
  std::filesystem::create_directories(file());
  expect_refused("not a file", commands(store()));
}

TEST_F(UnreadableStoreTest, RefusesAMissingStoreAndDoesNotCreateIt) {
  write("bystander", "x");
  const Listing before = listing(folder.path());
  expect_refused("no store here; name the folder that holds the file \"corvan\"",
                 commands(store()));
  EXPECT_EQ(listing(folder.path()), before);
  std::filesystem::create_directory(store());
  expect_refused("no store here; name the folder that holds the file \"corvan\"",
                 commands(store()));
  EXPECT_EQ(listing(store()), Listing{});
  // A file in place of the folder.
  const Outcome outcome = run({"list", folder.file("bystander")});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + folder.file("bystander/corvan") +
                             ": no store here; name the folder that holds the file \"corvan\"\n");
}

TEST_F(UnreadableStoreTest, ReportsAnUnreadableFile) {
  import_sample();
  ASSERT_EQ(chmod(file().c_str(), 0000), 0);
  unprivileged = true;
  const Outcome outcome = run({"list", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": Permission denied\n");
}

}  // namespace
}  // namespace corvan_test
