#include <cstdint>
#include <ctime>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/import_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ImportTest : public ImportSample {};

TEST_F(ImportTest, StoresEachLineAsItIs) {
  const Outcome outcome = import_text(
      line({{"content", "中文 😀 'quoted'\n"}, {"is_mention", true}, {"server_uid", "s1"}}) +
      line({{"session_id", "u01"},
            {"session_type", 1},
            {"sender", "me"},
            {"is_receive", false},
            {"object_name", "CV:ImgMsg"},
            {"sent_time", 1700000001000},
            {"sent_status", 3},
            {"client_uid", 12}}) +
      line({{"session_id", "hall"}, {"session_type", 3}, {"sent_time", 5}}) +
      line({{"sent_time", 1700000002000}}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(counts(outcome), "4 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows(kMessages),
            (Rows{"1|room|2|CV:TxtMsg|中文 😀 'quoted'\n|u01|1|0|0|1|1700000000000|0|s1",
                  "2|u01|1|CV:ImgMsg|hi|me|0|3|1|0|1700000001000|12|",
                  "3|hall|3|CV:TxtMsg|hi|u01|1|0|1|0|5|0|",
                  "4|room|2|CV:TxtMsg|hi|u01|1|0|0|0|1700000002000|0|"}));
  EXPECT_EQ(rows(kSessions),
            (Rows{"hall|3|5|1|0|3", "room|2|1700000002000|2|1|4", "u01|1|1700000001000|0|0|2"}))
      << "received messages are counted, own ones are not";
}

TEST_F(ImportTest, TimeOfZeroBecomesTheTimeOfTheImport) {
  const int64_t before = int64_t{std::time(nullptr)} * 1000;
  ASSERT_EQ(import_text(line({{"sent_time", 0}})).status, 0);
  const int64_t after = (int64_t{std::time(nullptr)} + 1) * 1000;
  const int64_t time = std::stoll(rows("select sent_time from t_message").at(0));
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
}

TEST_F(ImportTest, ReportsCountsAndRate) {
  const Outcome outcome = import_text(numbered(3));
  const std::regex expected(
      "3 stored, 0 completed, 0 refused, 0 bad; [0-9]+\\.[0-9]{2} s, [0-9]+ lines/s\n");
  EXPECT_TRUE(std::regex_match(outcome.out, expected)) << outcome.out;
}

TEST_F(ImportTest, SecondImportStoresNothing) {
  ASSERT_EQ(import_text(numbered(5)).status, 0);
  const Rows stored = rows(kMessages);
  const Rows sessions = rows(kSessions);
  const Outcome again = import_text(numbered(5));
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(counts(again), "0 stored, 0 completed, 5 refused, 0 bad");
  EXPECT_EQ(rows(kMessages), stored);
  EXPECT_EQ(rows(kSessions), sessions);
  EXPECT_EQ(counts(import_text(numbered(7))), "2 stored, 0 completed, 5 refused, 0 bad");
}

TEST_F(ImportTest, OwnMessageReceivesItsServerUid) {
  const Json own = {{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}};
  Json named = own;
  named["server_uid"] = "s7";
  named["sent_time"] = 1700000009000;
  ASSERT_EQ(counts(import_text(line(own))), "1 stored, 0 completed, 0 refused, 0 bad");
  const Outcome outcome = import_text(line(named) + line(named));
  EXPECT_EQ(counts(outcome), "0 stored, 1 completed, 1 refused, 0 bad");
  const Rows completed = {"1|room|2|CV:TxtMsg|hi|me|0|0|1|0|1700000009000|7|s7"};
  EXPECT_EQ(rows(kMessages), completed);
}

TEST_F(ImportTest, OwnMessageReceivesItsServerUidWithinOneBatch) {
  const Json own = {{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}};
  Json named = own;
  named["server_uid"] = "s7";
  const Outcome outcome = import_text(numbered(2) + line(own) + line(named) + numbered(1, 3));
  EXPECT_EQ(counts(outcome), "4 stored, 1 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select server_uid from t_message order by id"), (Rows{"s1", "s2", "s7", "s3"}));
}

TEST_F(ImportTest, CompletesOnlyMessagesOfTheUser) {
  const Json own = {{"sender", "someone"}, {"is_receive", false}, {"client_uid", 7}};
  ASSERT_EQ(import_text(line(own)).status, 0);
  EXPECT_EQ(counts(import_text(line(own))), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(counts(run({"import", store(), "--user", "someone", log()})),
            "0 stored, 1 completed, 0 refused, 0 bad");
}

TEST_F(ImportTest, BadLineKeepsEarlierBatches) {
  const std::string text = numbered(5) + line({{"sent_time", "noon"}}) + numbered(3, 6);
  const Outcome outcome = import_text(text, {"--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":6: field \"sent_time\": must be a whole number\n");
  EXPECT_EQ(counts(outcome), "4 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3", "4"}));
  EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
}

TEST_F(ImportTest, ReadsWholeBatchBeforeSavingAnyOfIt) {
  const Outcome outcome = import_text(numbered(6) + "bad\n", {"--batch", "3"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(contents().size(), 6U);
  EXPECT_EQ(import_text(numbered(8, 7) + "bad\n", {"--batch", "4"}).status, 2);
  EXPECT_EQ(contents().size(), 14U);
  EXPECT_EQ(import_text(numbered(3, 15) + "bad\n", {"--batch", "4"}).status, 2);
  EXPECT_EQ(contents().size(), 14U);
}

TEST_F(ImportTest, BadFirstBatchCreatesNoStore) {
  const Outcome outcome = import_text(numbered(5) + line({{"session_type", 9}}));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":6: field \"session_type\": must be from 1 to 5\n");
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportTest, ReportsEachBadLineOnOneLine) {
  const std::string at = "corvan: " + log() + ":2: ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {line({{"sender", nullptr}}), "field \"sender\": missing"},
      {line({{"content", std::string("a\0b", 3)}}), "field \"content\": contains a zero character"},
      {line({{"session_id", ""}}), "field \"session_id\": must not be empty"},
      {line({{"is_receive", 1}}), "field \"is_receive\": must be true or false"},
      {"[]\n", "not a JSON object"},
      {"null\n", "not a JSON object"},
      {"nonsense\n", "not valid JSON at byte 2"},
  };
  for (const auto& [text, error] : cases) {
    const Outcome outcome = import_text(numbered(1) + text);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, at + error + "\n");
    EXPECT_FALSE(store_exists());
  }
}

TEST_F(ImportTest, SkipBadCountsBadLinesAndContinues) {
  const Outcome outcome =
      import_text("oops\n" + numbered(3) + line({{"sent_status", 4}}) + numbered(2, 4) + "[1]\n",
                  {"--skip-bad", "--batch", "2"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "5 stored, 0 completed, 0 refused, 3 bad");
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":1: not valid JSON at byte 1 (skipped)\n" +
                             "corvan: " + log() +
                             ":5: field \"sent_status\": must be from 0 to 3 (skipped)\n" +
                             "corvan: " + log() + ":8: not a JSON object (skipped)\n");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3", "4", "5"}));
}

TEST_F(ImportTest, BadLineLeavesNoValuesForTheNextOne) {
  const Json with_all = {{"session_type", 3}, {"is_mention", true},  {"sent_status", 2},
                         {"client_uid", 5},   {"server_uid", "bad"}, {"sent_time", -1}};
  const Outcome outcome = import_text(line(with_all) + line({}), {"--skip-bad"});
  EXPECT_EQ(counts(outcome), "1 stored, 0 completed, 0 refused, 1 bad");
  EXPECT_EQ(rows(kMessages), Rows{"1|room|2|CV:TxtMsg|hi|u01|1|0|0|0|1700000000000|0|"});
}

TEST_F(ImportTest, HistoryDoesNotMoveConversationsBack) {
  const std::string text = line({{"sent_time", 9000}, {"content", "new"}}) +
                           line({{"sent_time", 4000}, {"content", "old"}});
  ASSERT_EQ(import_text(text).status, 0);
  EXPECT_EQ(rows(kSessions), Rows{"room|2|4000|2|0|2"}) << "a live message moves the conversation";

  const std::string other = folder.file("other");
  ASSERT_EQ(run({"import", other, "--user", "me", "--history", log()}).status, 0);
  EXPECT_EQ(corvan_test::rows(other + "/corvan", kSessions), Rows{"room|2|9000|1|0|1"})
      << "a fetched message does not";
}

TEST_F(ImportTest, InsertOnlyDoesNotMoveConversations) {
  const std::string text = line({{"sent_time", 9000}, {"content", "new"}}) +
                           line({{"sent_time", 4000}, {"content", "old"}});
  ASSERT_EQ(import_text(text, {"--insert-only"}).status, 0);
  EXPECT_EQ(rows(kSessions), Rows{"room|2|9000|2|0|1"});
}

TEST_F(ImportTest, HistoryAndInsertOnlyCompleteNoMessages) {
  const std::string own = line({{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}});
  ASSERT_EQ(import_text(own).status, 0);
  EXPECT_EQ(counts(import_text(own, {"--history"})), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(counts(import_text(own, {"--insert-only"})), "1 stored, 0 completed, 0 refused, 0 bad");
}

TEST_F(ImportTest, JsonHasCountsAndRate) {
  const Outcome outcome =
      import_text(numbered(3) + numbered(1) + "bad\n", {"--skip-bad", "--json"});
  EXPECT_EQ(outcome.status, 0);
  const Json result = Json::parse(outcome.out);
  Rows keys;
  for (const auto& [key, value] : result.items()) keys.push_back(key);
  EXPECT_EQ(keys, (Rows{"stored", "completed", "refused", "bad", "seconds", "lines_per_second"}));
  EXPECT_EQ(result["stored"], 3);
  EXPECT_EQ(result["completed"], 0);
  EXPECT_EQ(result["refused"], 1);
  EXPECT_EQ(result["bad"], 1);
  EXPECT_GE(result["seconds"].get<double>(), 0.0);
}

TEST_F(ImportTest, WritesJsonAfterFailure) {
  const Outcome outcome = import_text(numbered(3) + "bad\n", {"--json", "--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(Json::parse(outcome.out)["stored"], 2);
}

TEST_F(ImportTest, BadUsageIsOneLineAndCreatesNothing) {
  const std::string a = write("a.jsonl", numbered(1));
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"import"}, "FOLDER"},
      {{"import", store()}, "FILE"},
      {{"import", store(), a}, "--user"},
      {{"import", store(), a, "--user"}, "--user"},
      {{"import", "", a, "--user", "me"}, "FOLDER"},
      {{"import", store(), a, "--user", "me", "--batch", "0"}, "--batch"},
      {{"import", store(), a, "--user", "me", "--batch", "x"}, "--batch"},
      {{"import", store(), a, "--user", "me", "--batch", "99999999999999999999"}, "--batch"},
      {{"import", store(), a, "--user", "me", "--bogus"}, "--bogus"},
  };
  for (const auto& [arguments, name] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.find("corvan: "), 0U) << outcome.err;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
    EXPECT_FALSE(store_exists());
  }
}

}  // namespace
}  // namespace corvan_test
