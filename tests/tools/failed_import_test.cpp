#include <cstddef>
#include <optional>
#include <regex>
#include <string>

#include "tests/tools/failed_calls.h"

namespace corvan_test {
namespace {

constexpr int kBatch = 5;

class FailedCallOfImport : public FailedCallsTest {
 protected:
  void SetUp() override {
    FailedCallsTest::SetUp();
    log_ = write("log.jsonl", messages(kStoredBefore + 1, kLines));
    arguments_ = {"import", store(), "--user", "me", "--batch", std::to_string(kBatch), log_};
  }

  // Compares the rows, whose contents are 1, 2, 3 and so on, with what was reported.
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
    if (outcome.err.find("; it is unknown whether ") != std::string::npos)
      return;  // the outcome is unknown
    const std::size_t stored = contents.size() - kStoredBefore;
    EXPECT_EQ(outcome.out.rfind(std::to_string(stored) + " stored, ", 0), 0U) << outcome.out;
  }

  // The last line that is stored according to the error; nothing if the error names none.
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

  // Imports the lines that are missing according to the error into the store "later".
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
    EXPECT_EQ(outcome.err.find("; it is unknown whether "), std::string::npos) << outcome.err;
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
    EXPECT_EQ(outcome.err.find("; it is unknown whether "), std::string::npos) << outcome.err;
    expect_truth(outcome);
  });
}

TEST_F(FailedCallOfImport, ReportsWhatIsStoredOrThatItIsUnknownIfEverySyncFails) {
  for (const Client client : {Client::kNone, Client::kHasStoreOpen}) {
    at_every_call(arguments_, client, Fails::kFromThenOn,
                  [this](const Outcome& outcome) { expect_truth(outcome); });
  }
}

TEST_F(FailedCallOfImport, TheErrorNamesTheLineToContinueFrom) {
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

}  // namespace
}  // namespace corvan_test
