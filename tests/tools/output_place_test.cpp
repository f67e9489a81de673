// No command may write to the name of a file that SQLite would open with a store.

#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/hostile_files.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

class OutputPlaceTest : public HostileFilesTest {
 protected:
  // Expects that no command that creates something accepts this place.
  void expect_refused_place(const std::string& place) {
    SCOPED_TRACE(place);
    const std::vector<Arguments> commands = {
        {"export", store(), "--format", "jsonl", "--output", place},
        {"export", store(), "--format", "csv", "--output", place},
        {"export", store(), "--format", "html", "--output", place},
        {"backup", store(), place},
        {"salvage", store(), place},
        {"restore", exported, place},
        {"import", place, "--user", "me", log_}};
    for (const Arguments& arguments : commands) {
      const Rows before = names_in(store());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      const std::string named = place.back() == '/' ? place.substr(0, place.size() - 1) : place;
      EXPECT_EQ(outcome.err,
                "corvan: " + named + ": the name of a store's own file; name another place\n");
      EXPECT_EQ(names_in(store()), before);
    }
  }

 private:
  const std::string exported =
      write("export.jsonl", output({"export", store(), "--format", "jsonl"}));
};

// Outputs.

TEST_F(OutputPlaceTest, RefusesTheNameOfAStoresFile) {
  const std::string other = folder.file("other");
  fs::create_directory(other);
  write_file(other + "/corvan", "of any content");
  fs::create_directory(store() + "/sub");
  const std::vector<std::string> places = {
      store() + "/corvan-wal",   store() + "/corvan-shm",           store() + "/corvan-journal",
      store() + "/./corvan-wal", store() + "//corvan-wal/",         store() + "/sub/../corvan-wal",
      other + "/corvan-journal", store() + "/corvan-search",        store() + "/corvan-search-wal",
      other + "/corvan-search",  store() + "/sub/corvan-search-shm"};
  for (const std::string& place : places) expect_refused_place(place);
  EXPECT_EQ(names_in(other), Rows{"corvan"});
}

TEST_F(OutputPlaceTest, RefusesTheNameOfAStoresFileForABackup) {
  plant("update t_session set unread_count=77");
  const Outcome outcome =
      run({"verify", store(), "--repair", "counters", "--backup", store() + "/corvan-journal"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + store() +
                "/corvan-journal: the name of a store's own file; name another place\n");
  EXPECT_EQ(rows("select unread_count from t_session"), Rows{"77"});
}

TEST_F(OutputPlaceTest, RefusesTheNameOfAStoresFileInALinkedFolder) {
  fs::create_directory_symlink(store(), folder.file("linked"));
  expect_refused_place(folder.file("linked/corvan-wal"));
}

TEST_F(OutputPlaceTest, RefusesTheNameOfALogBesideALinkedDatabase) {
  // If the store's file is a link, its log is beside the linked file.
  fs::rename(file(), folder.file("real.db"));
  fs::create_symlink(folder.file("real.db"), file());
  const Outcome outcome =
      run({"export", store(), "--format", "csv", "--output", folder.file("real.db-wal")});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_FALSE(fs::exists(folder.file("real.db-wal")));
}

// A log alone can be salvaged, but no folder may take the name of its missing file.
TEST_F(OutputPlaceTest, RefusesTheNameOfAMissingDatabase) {
  const std::string lost = folder.file("lost");
  fs::create_directory(lost);
  write_file(lost + "/corvan-wal", "a log");
  EXPECT_EQ(run({"backup", store(), lost + "/corvan"}).status, 2);
}

TEST_F(OutputPlaceTest, ImportCreatesNoParentFolderWithAStoresName) {
  const Rows before = names_in(store());
  for (const char* place : {"/corvan-wal/sub", "/corvan-shm/sub/", "/new/../corvan-wal/sub"}) {
    const Outcome outcome = run({"import", store() + place, "--user", "me", log_});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find(": the name of a store's own file; name another place\n"),
              std::string::npos)
        << outcome.err;
    EXPECT_EQ(names_in(store()), before);
  }
  output({"import", folder.file("new/folders/"), "--user", "me", log_});
  EXPECT_EQ(names_in(folder.file("new/folders")), Rows{"corvan"});
}

TEST_F(OutputPlaceTest, AcceptsTheNameOfAStoreInAnotherFolder) {
  const std::string backups = folder.file("backups");
  fs::create_directory(backups);
  output({"backup", store(), backups + "/corvan"});
  output({"export", store(), "--format", "csv", "--output", store() + "/corvan.csv"});
  output({"export", store(), "--format", "csv", "--output", backups + "/notes-journal"});
  EXPECT_EQ(names_in(backups), (Rows{"corvan", "notes-journal"}));
}

TEST_F(OutputPlaceTest, RefusesTheNameOfALogInAnyFolder) {
  const std::string empty = folder.file("empty");
  fs::create_directory(empty);
  for (const char* name : {"/corvan-wal", "/corvan-shm", "/corvan-journal"}) {
    const Outcome outcome = run({"export", store(), "--format", "csv", "--output", empty + name});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "corvan: " + empty + name + ": the name of a store's own file; name another place\n");
  }
  EXPECT_EQ(names_in(empty), Rows{});
}

}  // namespace
}  // namespace corvan_test
