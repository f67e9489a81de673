// Commands that change a store in one transaction.

#include <string>

#include "tests/tools/failed_calls.h"

namespace corvan_test {
namespace {

class FailedCallOfChange : public FailedCallsTest {
 protected:
  // `sql` returns `made` if the command's change is in the store.
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
        if (outcome.err.find("; it is unknown whether ") != std::string::npos) {
          EXPECT_EQ(fails, Fails::kFromThenOn);
        } else if (is_made) {
          EXPECT_NE(outcome.err.find("the changes were made nevertheless"), std::string::npos)
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

TEST_F(FailedCallOfChange, IndexReportsWhatIsInTheStoreIfEverySyncFails) {
  expect_truth({"index", store()}, Fails::kFromThenOn, kNoIndex, kIndexes, "1");
}

TEST_F(FailedCallOfChange, RepairReportsWhatIsInTheStore) {
  expect_truth(repair_arguments(), Fails::kOnce, kHighCounter, kCounter, "10");
}

TEST_F(FailedCallOfChange, RepairReportsWhatIsInTheStoreIfEverySyncFails) {
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

}  // namespace
}  // namespace corvan_test
