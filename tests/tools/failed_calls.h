// Runs commands while a sync or a read of the store's files fails. They must report what the store
// then contains. If the sync at the end of a commit fails, the commit is in the write-ahead log
// nevertheless. A client that has the store open keeps that log from being cleared; if the client
// is killed, the next opening replays what the failed commit left there.

#ifndef TESTS_TOOLS_FAILED_CALLS_H_
#define TESTS_TOOLS_FAILED_CALLS_H_

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tests/tools/program.h"

namespace corvan_test {

inline constexpr int kLines = 30;
inline constexpr int kStoredBefore = 10;
inline constexpr int kMostCalls = 200;  // more than any of these commands makes

// `from` to `to`, without server uids, so that a message stored twice shows.
inline std::string messages(int from, int to) {
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

  // Runs the program once for each sync or read of the store's files, and makes that call fail.
  // Calls `check` with each outcome. Each run starts with the store as SetUp() and `prepare` left
  // it.
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

  // Rows of the store as the next opening finds it after the client was killed.
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

  // Copies the files as a killed client leaves them: without a checkpoint.
  void keep_for_later() const {
    const std::string to = folder.file("later");
    std::filesystem::remove_all(to);
    std::filesystem::create_directory(to);
    for (const char* name : {"/corvan", "/corvan-wal", "/corvan-journal"}) {
      if (std::filesystem::exists(store() + name)) std::filesystem::copy(store() + name, to + name);
    }
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_FAILED_CALLS_H_
