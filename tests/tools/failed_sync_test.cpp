// The sync at the end of a commit fails, and the tool must report what the store then holds. A
// client that has the store open keeps the write-ahead log from being cleared; when it is killed,
// the next opening replays what the failed commit left there.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {
namespace {

constexpr int kLines = 30;
constexpr int kStoredBefore = 10;
constexpr int kBatch = 5;
constexpr int kMostSyncs = 60;  // more than any command here makes

// `from` to `to`, without server uids, so that a message stored twice shows.
std::string messages(int from, int to) {
  std::string text;
  for (int i = from; i <= to; ++i) {
    text += line({{"content", std::to_string(i)}, {"sent_time", 1000 * i}});
  }
  return text;
}

enum class Client { kNone, kHasStoreOpen };
enum class Fails { kOnce, kFromThenOn };

class FailedSyncTest : public ToolTest {
 protected:
  void SetUp() override {
    import(messages(1, kStoredBefore));
    std::filesystem::rename(store(), before());
  }

  // Each sync of the store's files fails in turn while the program runs with `arguments`; calls
  // `check` with what it answered. The store is as SetUp() and `prepare` left it each time.
  void at_every_sync(const Arguments& arguments, Client client, Fails fails,
                     const std::function<void(const Outcome&)>& check,
                     const std::string& prepare = "") {
    int sync = 1;
    for (; sync <= kMostSyncs; ++sync) {
      SCOPED_TRACE("sync " + std::to_string(sync));
      const std::optional<Outcome> outcome = run_with_failure(
          arguments, client, std::to_string(sync) + (fails == Fails::kOnce ? "" : "+"), prepare);
      if (!outcome) break;
      check(*outcome);
    }
    EXPECT_GT(sync, 1) << "no sync failed";
    EXPECT_LT(sync, kMostSyncs);
  }

  // What the next opening finds, after the client was killed.
  Rows later(const std::string& sql) const {
    return corvan_test::rows(folder.file("later/corvan"), sql);
  }

 private:
  std::string before() const { return folder.file("before"); }

  // Nothing if the command makes fewer syncs than that.
  std::optional<Outcome> run_with_failure(const Arguments& arguments, Client client,
                                          const std::string& which, const std::string& prepare) {
    std::filesystem::remove_all(folder.file("copy"));  // of --repair
    std::filesystem::remove_all(store());
    std::filesystem::copy(before(), store());
    std::unique_ptr<WriteAhead> open;
    if (!prepare.empty()) plant(prepare);
    if (client == Client::kHasStoreOpen) open = std::make_unique<WriteAhead>(file(), "");
    const std::string mark = folder.file("sync-failed");
    std::filesystem::remove(mark);
    variables = {"LD_PRELOAD=" CORVAN_FAILING_SYNC, "CORVAN_SYNC_IN=" + store() + "/",
                 "CORVAN_SYNC_FAILS=" + which, "CORVAN_SYNC_MARK=" + mark};
    const Outcome outcome = run(arguments);
    variables.clear();
    if (!std::filesystem::exists(mark)) return std::nullopt;
    keep_for_later();
    return outcome;
  }

  // As a killed client leaves the files: nothing is brought from the log into the store.
  void keep_for_later() const {
    const std::string to = folder.file("later");
    std::filesystem::remove_all(to);
    std::filesystem::create_directory(to);
    for (const char* name : {"/corvan", "/corvan-wal", "/corvan-journal"}) {
      if (std::filesystem::exists(store() + name)) std::filesystem::copy(store() + name, to + name);
    }
  }
};

// ---- Import -------------------------------------------------------------------------------------

class FailedSyncOfImport : public FailedSyncTest {
 protected:
  void SetUp() override {
    FailedSyncTest::SetUp();
    log_ = write("log.jsonl", messages(kStoredBefore + 1, kLines));
    arguments_ = {"import", store(), "--user", "me", "--batch", std::to_string(kBatch), log_};
  }

  // The rows against what was reported: the rows' contents are 1, 2, 3 and so on.
  void expect_truth(const Outcome& outcome) {
    const Rows contents = later("select content from t_message order by id");
    for (std::size_t i = 0; i < contents.size(); ++i) {
      EXPECT_EQ(contents[i], std::to_string(i + 1));
    }
    if (outcome.status == 0) {
      EXPECT_EQ(contents.size(), static_cast<std::size_t>(kLines));
      return;
    }
    EXPECT_EQ(outcome.status, 2);
    if (outcome.err.find("; whether ") != std::string::npos) return;  // it says that it cannot tell
    const std::size_t stored = contents.size() - kStoredBefore;
    EXPECT_EQ(outcome.out.rfind(std::to_string(stored) + " stored, ", 0), 0U) << outcome.out;
  }

  // The line after which, as the error tells, nothing is stored; nothing if it does not tell.
  static std::optional<int> last_stored(const std::string& error) {
    std::smatch found;
    if (std::regex_search(error, found, std::regex("nothing was stored from .*:([0-9]+) on"))) {
      return std::stoi(found[1]) - 1;
    }
    if (std::regex_search(error, found, std::regex("all lines up to .*:([0-9]+) are stored"))) {
      return std::stoi(found[1]);
    }
    return std::nullopt;
  }

  // Imports into the store of "later" what the error says is missing.
  void go_on_after(const Outcome& outcome) {
    if (outcome.status == 0) return;
    const int last = last_stored(outcome.err).value_or(0);  // opening failed otherwise
    const std::string rest = write("rest.jsonl", messages(kStoredBefore + last + 1, kLines));
    const Outcome again = run({"import", folder.file("later"), "--user", "me", rest});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(later("select count(*),count(distinct content) from t_message"), (Rows{"30|30"}))
        << outcome.err;
  }

  Arguments arguments_;

 private:
  std::string log_;
};

TEST_F(FailedSyncOfImport, ReportsWhatIsStored) {
  at_every_sync(arguments_, Client::kNone, Fails::kOnce,
                [this](const Outcome& outcome) { expect_truth(outcome); });
}

TEST_F(FailedSyncOfImport, ReportsWhatIsStoredWhileAClientHasTheStoreOpen) {
  at_every_sync(arguments_, Client::kHasStoreOpen, Fails::kOnce, [this](const Outcome& outcome) {
    EXPECT_EQ(outcome.err.find("; whether "), std::string::npos) << outcome.err;
    expect_truth(outcome);
  });
}

TEST_F(FailedSyncOfImport, ReportsWhatIsStoredOrThatItCannotTellWhenNoSyncSucceedsAgain) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    at_every_sync(arguments_, client, Fails::kFromThenOn,
                  [this](const Outcome& outcome) { expect_truth(outcome); });
  }
}

TEST_F(FailedSyncOfImport, TheErrorTellsFromWhichLineToGoOn) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    at_every_sync(arguments_, client, Fails::kOnce,
                  [this](const Outcome& outcome) { go_on_after(outcome); });
  }
}

// ---- Commands that change a store in one transaction
// ----------------------------------------------

class FailedSyncOfChange : public FailedSyncTest {
 protected:
  // `sql` gives `made` once the command's change is in the store.
  void expect_truth(const Arguments& arguments, Fails fails, const std::string& prepare,
                    const std::string& sql, const std::string& made) {
    for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
      const auto check = [&](const Outcome& outcome) {
        const bool is_made = later(sql) == Rows{made};
        if (outcome.status == 0) {
          EXPECT_TRUE(is_made);
          return;
        }
        EXPECT_EQ(outcome.status, 2);
        if (outcome.err.find("; whether ") != std::string::npos) {
          EXPECT_EQ(fails, Fails::kFromThenOn);
        } else if (is_made) {
          EXPECT_NE(outcome.err.find("the changes were made all the same"), std::string::npos)
              << outcome.err;
        } else {
          EXPECT_NE(outcome.err.find("nothing was changed"), std::string::npos) << outcome.err;
        }
      };
      at_every_sync(arguments, client, fails, check, prepare);
    }
  }

  Arguments repair_arguments() const {
    return {"verify", store(), "--repair", "counters", "--backup", folder.file("copy")};
  }
};

constexpr const char* kNoIndex = "drop index t_message_session";
constexpr const char* kIndexes =
    "select count(*) from sqlite_master where name='t_message_session'";
constexpr const char* kHighCounter = "update t_session set unread_count=99";
constexpr const char* kCounter = "select unread_count from t_session";

TEST_F(FailedSyncOfChange, IndexReportsWhatIsInTheStore) {
  expect_truth({"index", store()}, Fails::kOnce, kNoIndex, kIndexes, "1");
}

TEST_F(FailedSyncOfChange, IndexReportsWhatIsInTheStoreWhenNoSyncSucceedsAgain) {
  expect_truth({"index", store()}, Fails::kFromThenOn, kNoIndex, kIndexes, "1");
}

TEST_F(FailedSyncOfChange, RepairReportsWhatIsInTheStore) {
  expect_truth(repair_arguments(), Fails::kOnce, kHighCounter, kCounter, "10");
}

TEST_F(FailedSyncOfChange, RepairReportsWhatIsInTheStoreWhenNoSyncSucceedsAgain) {
  expect_truth(repair_arguments(), Fails::kFromThenOn, kHighCounter, kCounter, "10");
}

TEST_F(FailedSyncOfChange, CompactLosesNoMessage) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    for (const Fails fails : {Fails::kOnce, Fails::kFromThenOn}) {
      at_every_sync({"compact", store()}, client, fails, [this](const Outcome& outcome) {
        EXPECT_TRUE(outcome.status == 0 || outcome.status == 2);
        EXPECT_EQ(later("select count(*),count(distinct content) from t_message"), (Rows{"10|10"}));
        EXPECT_EQ(later("pragma integrity_check"), (Rows{"ok"}));
      });
    }
  }
}

// ---- What is made -------------------------------------------------------------------------------

class FailedSyncOfMade : public ToolTest {
 protected:
  FailedSyncOfMade() : made(folder.file("made")) { import(messages(1, kStoredBefore)); }

  // Each sync of what is made at `made`, and of the folder around it, fails in turn while the
  // program runs with `arguments`; calls `check` with what it answered. Then `made` is removed.
  void at_every_sync(const Arguments& arguments, const std::function<void(const Outcome&)>& check) {
    const std::string mark = temporary("sync-failed");
    const std::string around = std::filesystem::path(made).parent_path().string();
    int sync = 1;
    for (; sync <= kMostSyncs; ++sync) {
      SCOPED_TRACE("sync " + std::to_string(sync));
      variables = {"LD_PRELOAD=" CORVAN_FAILING_SYNC, "CORVAN_SYNC_IN=" + around,
                   "CORVAN_SYNC_FAILS=" + std::to_string(sync), "CORVAN_SYNC_MARK=" + mark};
      const Outcome outcome = run(arguments);
      variables.clear();
      if (!std::filesystem::remove(mark)) break;
      check(outcome);
      std::filesystem::remove_all(made);
      EXPECT_EQ(listing(folder.path()).size(), 1U) << "something was left";
    }
    EXPECT_GT(sync, 1) << "no sync failed";
    EXPECT_LT(sync, kMostSyncs);
    std::filesystem::remove_all(made);
  }

  // Either all is there and only its name may be lost, or nothing is there.
  void expect_made_or_nothing(const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 2);
    const bool is_made = outcome.err == "corvan: " + made +
                                            ": is there and whole, but its folder cannot be "
                                            "synced: Input/output error; a power loss may take "
                                            "its name away\n";
    times_made += is_made ? 1 : 0;
    EXPECT_EQ(std::filesystem::exists(made), is_made) << outcome.err;
    EXPECT_EQ(outcome.err.find("nothing was kept") == std::string::npos, is_made) << outcome.err;
    EXPECT_EQ(outcome.err.find("no such index"), std::string::npos) << outcome.err;
  }

  int times_made = 0;
  const std::string made;
};

TEST_F(FailedSyncOfMade, AnExportIsThereOrNot) {
  at_every_sync({"export", store(), "--format", "jsonl", "--output", made},
                [this](const Outcome& outcome) { expect_made_or_nothing(outcome); });
  EXPECT_EQ(times_made, 1);
}

TEST_F(FailedSyncOfMade, ASalvagedStoreIsThereOrNot) {
  at_every_sync({"salvage", store(), made}, [this](const Outcome& outcome) {
    // What SQLite can do without, such as the sync of a folder, does not matter.
    if (outcome.status != 0) return expect_made_or_nothing(outcome);
    EXPECT_EQ(corvan_test::rows(made + "/corvan", "select count(*) from t_message"), Rows{"10"});
  });
  EXPECT_EQ(times_made, 1);
}

TEST_F(FailedSyncOfMade, AnImportIntoANewStoreCanBeRepeated) {
  const std::string log = temporary("log.jsonl");
  write_file(log, messages(1, kLines));
  const Arguments arguments = {"import", made, "--user", "me", log};
  at_every_sync(arguments, [&](const Outcome& /*outcome*/) {
    const Outcome again = run(arguments);
    EXPECT_EQ(again.status, 0) << again.err;
  });
}

}  // namespace
}  // namespace corvan_test
