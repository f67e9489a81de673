// A sync or a read of the store's files fails, and the tool must report what the store then holds.
// When it is the sync at the end of a commit, the commit is in the write-ahead log all the same. A
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
constexpr int kMostCalls = 200;  // more than any command here makes

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

class FailedCallsTest : public ToolTest {
 protected:
  void SetUp() override {
    import(messages(1, kStoredBefore));
    std::filesystem::rename(store(), before());
  }

  // Each sync of the store's files, or each read, fails in turn while the program runs with
  // `arguments`; calls `check` with what it answered. The store is as SetUp() and `prepare` left it
  // each time.
  void at_every_call(const Arguments& arguments, Client client, Fails fails,
                     const std::function<void(const Outcome&)>& check,
                     const std::string& prepare = "") {
    int call = 1;
    for (; call <= kMostCalls; ++call) {
      SCOPED_TRACE(failing_call_ + " " + std::to_string(call));
      const std::optional<Outcome> outcome = run_with_failure(
          arguments, client, std::to_string(call) + (fails == Fails::kOnce ? "" : "+"), prepare);
      if (!outcome) break;
      check(*outcome);
    }
    EXPECT_GT(call, 1) << "no call failed";
    EXPECT_LT(call, kMostCalls);
  }

  // From now on reads fail instead of syncs.
  void let_reads_fail() { failing_call_ = "read"; }

  // The store's folder as SetUp() left it.
  std::string before() const { return folder.file("before"); }

  // What the next opening finds, after the client was killed.
  Rows later(const std::string& sql) const {
    return corvan_test::rows(folder.file("later/corvan"), sql);
  }

 private:
  // Nothing if the command makes fewer calls than that.
  std::optional<Outcome> run_with_failure(const Arguments& arguments, Client client,
                                          const std::string& which, const std::string& prepare) {
    std::filesystem::remove_all(folder.file("copy"));  // of --repair
    std::filesystem::remove_all(store());
    std::filesystem::copy(before(), store());
    std::unique_ptr<WriteAhead> open;
    if (!prepare.empty()) plant(prepare);
    if (client == Client::kHasStoreOpen) open = std::make_unique<WriteAhead>(file(), "");
    const std::string mark = folder.file("call-failed");
    std::filesystem::remove(mark);
    variables = {"LD_PRELOAD=" CORVAN_FAILING_CALLS, "CORVAN_FAIL_CALL=" + failing_call_,
                 "CORVAN_FAIL_IN=" + store() + "/", "CORVAN_FAIL_AT=" + which,
                 "CORVAN_FAIL_MARK=" + mark};
    const Outcome outcome = run(arguments);
    variables.clear();
    if (!std::filesystem::exists(mark)) return std::nullopt;
    keep_for_later();
    return outcome;
  }

  std::string failing_call_ = "sync";

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

class FailedCallOfImport : public FailedCallsTest {
 protected:
  void SetUp() override {
    FailedCallsTest::SetUp();
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

TEST_F(FailedCallOfImport, ReportsWhatIsStored) {
  at_every_call(arguments_, Client::kNone, Fails::kOnce, [this](const Outcome& outcome) {
    EXPECT_EQ(outcome.err.find("; whether "), std::string::npos) << outcome.err;
    expect_truth(outcome);
  });
}

// Batches of five lines: a line that is refused, and messages of the user that are completed, with
// a server uid or with a time alone.
TEST_F(FailedCallOfImport, ReportsWhatIsCompleted) {
  const auto own = [](int uid, int time, const std::string& server_uid) {
    return line({{"session_id", "own"},
                 {"sender", "me"},
                 {"is_receive", false},
                 {"client_uid", uid},
                 {"sent_time", time},
                 {"server_uid", server_uid}});
  };
  std::string before_lines;
  std::string named;
  std::string timed;
  for (int uid = 1; uid <= 4; ++uid) {
    before_lines += own(uid, 100, "") + own(uid + 4, 100, "");
    named += own(uid, 200, "s" + std::to_string(uid));
    timed += own(uid + 4, 200, "");
  }
  const std::string refused = line({{"server_uid", "there"}});
  const std::string there = write("there.jsonl", before_lines + refused);
  ASSERT_EQ(run({"import", before(), "--user", "me", there}).status, 0);
  const std::string log = write("own.jsonl", named + refused + timed + refused);
  const std::string own_rows = " from t_message where client_uid>0 and sent_time=200";
  at_every_call({"import", store(), "--user", "me", "--batch", "5", log}, Client::kHasStoreOpen,
                Fails::kOnce, [&](const Outcome& outcome) {
                  const std::string completed = later("select count(*)" + own_rows).at(0);
                  EXPECT_EQ(outcome.out.rfind("0 stored, " + completed + " completed", 0), 0U)
                      << completed << " rows, but: " << outcome.out << outcome.err;
                });
}

TEST_F(FailedCallOfImport, ReportsWhatIsStoredWhileAClientHasTheStoreOpen) {
  at_every_call(arguments_, Client::kHasStoreOpen, Fails::kOnce, [this](const Outcome& outcome) {
    EXPECT_EQ(outcome.err.find("; whether "), std::string::npos) << outcome.err;
    expect_truth(outcome);
  });
}

TEST_F(FailedCallOfImport, ReportsWhatIsStoredOrThatItCannotTellWhenNoSyncSucceedsAgain) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    at_every_call(arguments_, client, Fails::kFromThenOn,
                  [this](const Outcome& outcome) { expect_truth(outcome); });
  }
}

TEST_F(FailedCallOfImport, TheErrorTellsFromWhichLineToGoOn) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    at_every_call(arguments_, client, Fails::kOnce,
                  [this](const Outcome& outcome) { go_on_after(outcome); });
  }
}

// SQLite may end the transaction after a read that failed, and the library then stores the message
// on its own. The store is too large to be read whole before the first message is saved.
TEST_F(FailedCallOfImport, ReportsWhatIsStoredWhenAReadFails) {
  constexpr int kBefore = 3000;
  const auto named = [](int from, int to) {
    std::string text;
    for (int i = from; i <= to; ++i) {
      text +=
          line({{"content", std::to_string(i)}, {"server_uid", std::to_string(i * 7919 % 100003)}});
    }
    return text;
  };
  const std::string many = write("many.jsonl", named(kStoredBefore + 1, kBefore));
  ASSERT_EQ(run({"import", before(), "--user", "me", many}).status, 0);
  write("log.jsonl", named(kBefore + 1, kBefore + kLines));
  let_reads_fail();
  at_every_call(arguments_, Client::kNone, Fails::kOnce, [this](const Outcome& outcome) {
    const int rows = std::stoi(later("select count(*) from t_message").at(0));
    const std::string stored = std::to_string(rows - kBefore) + " stored, ";
    EXPECT_EQ(outcome.out.rfind(stored, 0), 0U) << outcome.out << outcome.err;
    EXPECT_EQ(outcome.err.find("trigger"), std::string::npos) << outcome.err;
    std::smatch alone;
    if (!std::regex_search(outcome.err, alone, std::regex("only .*:([0-9]+) is stored"))) return;
    EXPECT_EQ(later("select content from t_message order by id desc limit 1"),
              Rows{std::to_string(kBefore + std::stoi(alone[1]))});
  });
}

// ---- Commands that change a store in one transaction
// ----------------------------------------------

class FailedCallOfChange : public FailedCallsTest {
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
      at_every_call(arguments, client, fails, check, prepare);
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

TEST_F(FailedCallOfChange, IndexReportsWhatIsInTheStore) {
  expect_truth({"index", store()}, Fails::kOnce, kNoIndex, kIndexes, "1");
}

TEST_F(FailedCallOfChange, IndexReportsWhatIsInTheStoreWhenNoSyncSucceedsAgain) {
  expect_truth({"index", store()}, Fails::kFromThenOn, kNoIndex, kIndexes, "1");
}

TEST_F(FailedCallOfChange, RepairReportsWhatIsInTheStore) {
  expect_truth(repair_arguments(), Fails::kOnce, kHighCounter, kCounter, "10");
}

TEST_F(FailedCallOfChange, RepairReportsWhatIsInTheStoreWhenNoSyncSucceedsAgain) {
  expect_truth(repair_arguments(), Fails::kFromThenOn, kHighCounter, kCounter, "10");
}

TEST_F(FailedCallOfChange, CompactLosesNoMessage) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    for (const Fails fails : {Fails::kOnce, Fails::kFromThenOn}) {
      at_every_call({"compact", store()}, client, fails, [this](const Outcome& outcome) {
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
    for (; sync <= kMostCalls; ++sync) {
      SCOPED_TRACE("sync " + std::to_string(sync));
      variables = {"LD_PRELOAD=" CORVAN_FAILING_CALLS, "CORVAN_FAIL_CALL=sync",
                   "CORVAN_FAIL_IN=" + around, "CORVAN_FAIL_AT=" + std::to_string(sync),
                   "CORVAN_FAIL_MARK=" + mark};
      const Outcome outcome = run(arguments);
      variables.clear();
      if (!std::filesystem::remove(mark)) break;
      check(outcome);
      std::filesystem::remove_all(made);
      EXPECT_EQ(listing(folder.path()).size(), 1U) << "something was left";
    }
    EXPECT_GT(sync, 1) << "no sync failed";
    EXPECT_LT(sync, kMostCalls);
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
