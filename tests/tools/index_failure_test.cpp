#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/index_sample.h"
#include "tools/store/library_store.h"

namespace corvan_test {
namespace {

constexpr const char* kInUse =
    ": in use by another process (database is locked); nothing was changed; try again while the "
    "client is idle\n";

class IndexFailureTest : public IndexTest {};

TEST_F(IndexFailureTest, ReportsALockedStoreUnlessDryRun) {
  drop_all();
  const Rows before = schema();
  {
    const WriteAhead writer(file(), "begin immediate");
    const Outcome outcome = run({"index", store()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() + kInUse);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(schema(), before);
    EXPECT_EQ(bring_up({"--dry-run"})["created"].size(), indexes.size());
  }
  EXPECT_EQ(schema(), before);
}

TEST_F(IndexFailureTest, WorksWhileAReaderHasTheStoreOpen) {
  drop_all();
  const WriteAhead reader(file(), "begin;select count(*) from t_message");
  bring_up();
  expect_new();
}

TEST_F(IndexFailureTest, ReportsAReaderOutsideWalMode) {
  drop_all();
  plant("pragma journal_mode=delete");
  const Listing before = listing(store());
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &reader), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(reader, "begin;select count(*) from t_message", nullptr, nullptr, nullptr),
            SQLITE_OK);
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + kInUse);
  sqlite3_close(reader);  // before listing(), which closes the file and so releases the lock
  EXPECT_EQ(listing(store()), before);
  bring_up();
  expect_new();
  EXPECT_EQ(rows("pragma journal_mode"), Rows{"delete"});
}

TEST_F(IndexFailureTest, ClientThatHasTheStoreOpenKeepsWorking) {
  {
    corvan_tool::LibraryStore client(store(), "me");
    drop_all();
    const auto save = [&client](const std::string& uid) {
      return client->save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "u01", "text", true, 0, 0,
                                  false, 0, 0, uid, false, false, true);
    };
    EXPECT_EQ(save("before"), 5);
    EXPECT_EQ(bring_up()["created"].size(), indexes.size());
    EXPECT_TRUE(file_exists(file() + "-wal"));
    EXPECT_EQ(save("before"), -1) << "it is there";
    EXPECT_EQ(save("after"), 6);
    EXPECT_EQ(client.failure(), "");
  }
  expect_new();
  EXPECT_EQ(listing(store()).size(), 1U);
  content = rows(kIndexContent);
}

TEST_F(IndexFailureTest, ReadsTheLogOfAKilledWriter) {
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  {
    const WriteAhead writer(file(), "create index by_sender on t_message(sender)");
    for (const char* suffix : {"", "-wal"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
  }
  EXPECT_EQ(names_in(json({"index", killed, "--json", "--drop-others"})["dropped"]),
            Rows{"by_sender"});
  EXPECT_EQ(listing(killed).size(), 1U);
  bring_up({"--drop-others"});
}

TEST_F(IndexFailureTest, ReportsAMissingColumnAndCreatesNothing) {
  for (const StoredIndex& index : indexes) {
    const std::string column = rows("select name from pragma_index_info('" + index.name + "')")[0];
    if (column == "NULL") continue;  // an expression
    drop_all();
    plant("alter table " + index.table + " rename column " + column + " to renamed");
    for (const Arguments& more : std::vector<Arguments>{{}, {"--dry-run"}}) {
      const Listing before = listing(store());
      Arguments arguments = {"index", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(outcome.err.find("corvan: " + file() + ": index " + index.table + "_"), 0U)
          << outcome.err;
      EXPECT_NE(outcome.err.find(column + "; nothing was changed\n"), std::string::npos)
          << outcome.err;
      EXPECT_EQ(listing(store()), before);
    }
    plant("alter table " + index.table + " rename column renamed to " + column);
    bring_up();
    expect_new();
  }
}

TEST_F(IndexFailureTest, ReportsATableWithTheNameOfAnIndex) {
  plant("drop index " + indexes[0].name + ";create table " + indexes[0].name + "(x)");
  expect_refused("index " + indexes[0].name + ": there is already a table named " +
                 indexes[0].name + "; nothing was changed");
}

TEST_F(IndexFailureTest, AFullDiskChangesNothing) {
  std::string text;
  for (int i = 0; i < 1500; ++i) {
    text += line({{"session_id", "a conversation of some longer name " + std::to_string(i)},
                  {"server_uid", "a server uid of some length " + std::to_string(i)}});
  }
  import(text);
  content = rows(kIndexContent);
  drop_all();
  plant("create index t_message_older on t_message(sender)");
  const Listing before = listing(store());
  largest_file = std::uint64_t{64} << 10;
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": "), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find("; nothing was changed\n"), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  EXPECT_EQ(listing(store()), before);
  largest_file = 0;
  bring_up();
  expect_new();
}

TEST_F(IndexFailureTest, ReportsAReadOnlyStore) {
  drop_all();
  make_read_only();
  expect_refused(
      "attempt to write a readonly database; nothing was changed; make the file and its folder "
      "writable",
      {{}, {"--json"}});
  EXPECT_EQ(bring_up({"--dry-run"})["created"].size(), indexes.size());
  make_writable();  // for TearDown()
}

TEST_F(IndexFailureTest, ReportsADamagedPage) {
  const auto index = std::find_if(indexes.begin(), indexes.end(), [](const StoredIndex& candidate) {
    return candidate.table == "t_message";
  });
  ASSERT_NE(index, indexes.end());
  plant("drop index " + index->name);
  const std::string root = rows("select rootpage from sqlite_master where name='t_message'").at(0);
  std::string bytes = read_file(file());
  bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
  write_file(file(), bytes);
  readable_at_end = false;
  expect_refused("index " + index->name +
                 ": database disk image is malformed; nothing was changed; see 'corvan check' and "
                 "'corvan salvage'");
}

class IndexWithoutStoreTest : public IndexTest {
 protected:
  void SetUp() override { readable_at_end = false; }
};

TEST_F(IndexWithoutStoreTest, DoesNotDeleteAFileThatIsNotADatabase) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(10000, 'x'));
  expect_refused(
      "damaged (file is not a database); keep a copy: opening it with the library deletes it; "
      "'corvan salvage' rescues what can be read");
}

TEST_F(IndexWithoutStoreTest, RefusesAForeignDatabase) {
  std::filesystem::create_directory(store());
  plant("create table t_message(sender);create index t_message_older on t_message(sender)");
  expect_refused("a database, but not a message store");
}

TEST_F(IndexWithoutStoreTest, RefusesAnEmptyFile) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  expect_refused("an empty file, not a message store");
}

TEST_F(IndexWithoutStoreTest, RefusesAFolderInPlaceOfTheFile) {
  std::filesystem::create_directories(file());
  expect_refused("not a file");
}

TEST_F(IndexWithoutStoreTest, RefusesAMissingStoreAndDoesNotCreateIt) {
  std::filesystem::create_directory(store());
  expect_refused("no store here; name the folder that holds the file \"corvan\"");
  std::filesystem::remove(store());
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": no store here; name the folder that holds the file \"corvan\"\n");
  EXPECT_FALSE(file_exists(store()));
}

TEST_F(IndexWithoutStoreTest, PrintsHelp) {
  const std::string text = output({"index", "--help"});
  for (const char* word :
       {"FOLDER", "--json", "--drop-others", "--dry-run", "created", "replaced", "dropped", "left",
        "kept", "seconds", "bytes", "old_sql", "dry_run", "name", "table", "sql"}) {
    EXPECT_NE(text.find(word), std::string::npos) << word;
  }
  EXPECT_NE(output({"--help"}).find("  index "), std::string::npos);
}

TEST_F(IndexWithoutStoreTest, ReportsBadUsageInOneLine) {
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"index"}, "FOLDER"},
      {{"index", ""}, "FOLDER"},
      {{"index", store(), "more"}, "more"},
      {{"index", store(), "--drop"}, "--drop"},
  };
  for (const auto& [arguments, name] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << name;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.find("corvan: "), 0U) << outcome.err;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

}  // namespace
}  // namespace corvan_test
