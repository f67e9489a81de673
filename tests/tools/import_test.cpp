#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {
namespace {

constexpr const char* kMessages =
    "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id";
constexpr const char* kSessions =
    "select session_id,session_type,session_time,unread_count,mention_count,latest_id "
    "from t_session order by session_id,session_type";

class ImportTest : public ToolTest {
 protected:
  // Imports the files with more arguments.
  Outcome import_files(const Arguments& files, const Arguments& more = {}) {
    Arguments arguments = {"import", store(), "--user", "me"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.insert(arguments.end(), files.begin(), files.end());
    return run(arguments);
  }
  Outcome import_text(const std::string& text, const Arguments& more = {}) {
    return import_files({write("log.jsonl", text)}, more);
  }
  std::string log() const { return folder.file("log.jsonl"); }

  // The counts at the beginning of the last line of the output, before the rate.
  static std::string counts(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find(';'));
  }

  Rows contents() const { return rows("select content from t_message order by id"); }
  bool store_exists() const { return std::filesystem::exists(store()); }
};

// `count` lines with the contents "1", "2" and so on, a second apart.
std::string numbered(int count, int first = 1) {
  std::string text;
  for (int i = first; i < first + count; ++i) {
    text += line({{"content", std::to_string(i)},
                  {"sent_time", 1000 * i},
                  {"server_uid", "s" + std::to_string(i)}});
  }
  return text;
}

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

TEST_F(ImportTest, ATimeOfZeroIsThatOfTheImport) {
  const int64_t before = int64_t{std::time(nullptr)} * 1000;
  ASSERT_EQ(import_text(line({{"sent_time", 0}})).status, 0);
  const int64_t after = (int64_t{std::time(nullptr)} + 1) * 1000;
  const int64_t time = std::stoll(rows("select sent_time from t_message").at(0));
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
}

TEST_F(ImportTest, TellsCountsAndRate) {
  const Outcome outcome = import_text(numbered(3));
  const std::regex expected(
      "3 stored, 0 completed, 0 refused, 0 bad; [0-9]+\\.[0-9]{2} s, [0-9]+ lines/s\n");
  EXPECT_TRUE(std::regex_match(outcome.out, expected)) << outcome.out;
}

TEST_F(ImportTest, ASecondImportStoresNone) {
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

TEST_F(ImportTest, AnOwnMessageIsCompletedByItsServerUid) {
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

TEST_F(ImportTest, AMessageIsCompletedWithinOneBatchToo) {
  const Json own = {{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}};
  Json named = own;
  named["server_uid"] = "s7";
  const Outcome outcome = import_text(numbered(2) + line(own) + line(named) + numbered(1, 3));
  EXPECT_EQ(counts(outcome), "4 stored, 1 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select server_uid from t_message order by id"), (Rows{"s1", "s2", "s7", "s3"}));
}

TEST_F(ImportTest, TheUserIsTheOneWhoseMessagesAreCompleted) {
  const Json own = {{"sender", "someone"}, {"is_receive", false}, {"client_uid", 7}};
  ASSERT_EQ(import_text(line(own)).status, 0);
  EXPECT_EQ(counts(import_text(line(own))), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(counts(run({"import", store(), "--user", "someone", log()})),
            "0 stored, 1 completed, 0 refused, 0 bad");
}

TEST_F(ImportTest, ABadLineKeepsTheBatchesBeforeIts) {
  const std::string text = numbered(5) + line({{"sent_time", "noon"}}) + numbered(3, 6);
  const Outcome outcome = import_text(text, {"--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":6: field \"sent_time\": must be a whole number\n");
  EXPECT_EQ(counts(outcome), "4 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3", "4"}));
  EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
}

TEST_F(ImportTest, ABatchIsReadWholeBeforeAnyOfItIsSaved) {
  const Outcome outcome = import_text(numbered(6) + "bad\n", {"--batch", "3"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(contents().size(), 6U);
  EXPECT_EQ(import_text(numbered(8, 7) + "bad\n", {"--batch", "4"}).status, 2);
  EXPECT_EQ(contents().size(), 14U);
  EXPECT_EQ(import_text(numbered(3, 15) + "bad\n", {"--batch", "4"}).status, 2);
  EXPECT_EQ(contents().size(), 14U);
}

TEST_F(ImportTest, NothingIsMadeWhenTheFirstBatchIsBad) {
  const Outcome outcome = import_text(numbered(5) + line({{"session_type", 9}}));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":6: field \"session_type\": must be from 1 to 5\n");
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportTest, EachKindOfBadLineIsNamedOnOneLine) {
  const std::string at = "corvan: " + log() + ":2: ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {line({{"sender", nullptr}}), "field \"sender\": missing"},
      {line({{"content", std::string("a\0b", 3)}}), "field \"content\": holds a zero character"},
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

TEST_F(ImportTest, SkipBadCountsAndGoesOn) {
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

TEST_F(ImportTest, ABadLineLeavesNothingToTheNextOne) {
  const Json with_all = {{"session_type", 3}, {"is_mention", true},  {"sent_status", 2},
                         {"client_uid", 5},   {"server_uid", "bad"}, {"sent_time", -1}};
  const Outcome outcome = import_text(line(with_all) + line({}), {"--skip-bad"});
  EXPECT_EQ(counts(outcome), "1 stored, 0 completed, 0 refused, 1 bad");
  EXPECT_EQ(rows(kMessages), Rows{"1|room|2|CV:TxtMsg|hi|u01|1|0|0|0|1700000000000|0|"});
}

TEST_F(ImportTest, SeveralFilesAreReadInTheOrderGiven) {
  const std::string a = write("a.jsonl", numbered(2));
  const std::string b = write("b.jsonl", numbered(1, 3));
  const std::string c = write("c.jsonl", numbered(2, 4));
  EXPECT_EQ(counts(import_files({c, a, b}, {"--batch", "3"})),
            "5 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"4", "5", "1", "2", "3"}));
}

TEST_F(ImportTest, LinesAreCountedInEachFile) {
  const std::string a = write("a.jsonl", numbered(3));
  const std::string b = write("b.jsonl", numbered(1, 4) + "\n" + "x\n");
  const Outcome outcome = import_files({a, b}, {"--batch", "3"});
  EXPECT_EQ(outcome.err, "corvan: " + b + ":3: not valid JSON at byte 1\n");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
}

TEST_F(ImportTest, ReadsStandardInput) {
  const std::string a = write("a.jsonl", numbered(1));
  const std::string c = write("c.jsonl", numbered(1, 4));
  const Outcome outcome = run({"import", store(), "--user", "me", a, "-", c}, numbered(2, 2));
  EXPECT_EQ(counts(outcome), "4 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3", "4"}));

  const Outcome bad = run({"import", store(), "--user", "me", "-"}, numbered(2, 8) + "{}");
  EXPECT_EQ(bad.err, "corvan: standard input:3: field \"session_id\": missing\n");
  EXPECT_EQ(contents().size(), 4U);
}

TEST_F(ImportTest, AMissingFileIsFoundBeforeAnythingIsStored) {
  const std::string a = write("a.jsonl", numbered(2));
  const std::string missing = folder.file("missing.jsonl");
  const Outcome outcome = import_files({a, missing}, {"--batch", "1"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + missing + ": No such file or directory\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportTest, AFolderIsNoFile) {
  const Outcome outcome = import_files({folder.path()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + folder.path() + ": is a folder; name a file\n");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportTest, AnEmptyFileMakesAnEmptyStore) {
  const Outcome outcome = import_text("");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select database_version from t_version"), Rows{"1"});
  EXPECT_EQ(contents(), Rows{});
}

TEST_F(ImportTest, LineEndsOfAllKindsAreTaken) {
  std::string text = numbered(1);
  text.insert(text.size() - 1, "\r");
  text += "\r\n  \t\n\n" + numbered(2, 2);
  text.pop_back();
  EXPECT_EQ(counts(import_text(text)), "3 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
}

TEST_F(ImportTest, AByteOrderMarkIsPassedOver) {
  EXPECT_EQ(counts(import_text("\xEF\xBB\xBF" + numbered(2))),
            "2 stored, 0 completed, 0 refused, 0 bad");
}

TEST_F(ImportTest, LongLinesAreReadWhole) {
  // Around the size of the pieces that a line is read in.
  const std::size_t empty = line({{"content", ""}}).size() - 1;
  std::string text;
  Rows lengths;
  for (const std::size_t size : {65534U, 65535U, 65536U, 65537U, 131070U, 131071U, 300000U}) {
    text += line({{"content", std::string(size - empty, 'x')}});
    lengths.push_back(std::to_string(size - empty));
  }
  text.pop_back();
  EXPECT_EQ(counts(import_text(text)), "7 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select length(content) from t_message order by id"), lengths);
}

TEST_F(ImportTest, AFileWithoutLineEndsIsRefused) {
  const Outcome outcome = import_files({"/dev/zero"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: /dev/zero:1: longer than 64 MiB\n");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportTest, UnknownKeysAreNamedOnce) {
  const Outcome outcome = import_text(
      line({{"colour", 1}}) + line({{"colour", 2}, {"mood\n", {{"colour", 3}}}}) + line({}),
      {"--batch", "1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "3 stored, 0 completed, 0 refused, 0 bad");
  const std::string rest = " is ignored, here and in later lines\n";
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":1: unknown key \"colour\"" + rest +
                             "corvan: " + log() + ":2: unknown key \"mood\\n\"" + rest);
}

TEST_F(ImportTest, ManyUnknownKeysTakeNoLongTime) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "\"k" + std::to_string(i) + "\":0,";
  std::string good = line({});
  const Outcome outcome = import_text(good.insert(1, text));
  EXPECT_EQ(counts(outcome), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_NE(outcome.err.find("\"k19999\""), std::string::npos);
}

TEST_F(ImportTest, HistoryReachesTheSave) {
  const std::string text = line({{"sent_time", 9000}, {"content", "new"}}) +
                           line({{"sent_time", 4000}, {"content", "old"}});
  ASSERT_EQ(import_text(text).status, 0);
  EXPECT_EQ(rows(kSessions), Rows{"room|2|4000|2|0|2"}) << "a live message moves it";

  const std::string other = folder.file("other");
  ASSERT_EQ(run({"import", other, "--user", "me", "--history", log()}).status, 0);
  EXPECT_EQ(corvan_test::rows(other + "/corvan", kSessions), Rows{"room|2|9000|1|0|1"})
      << "a fetched one does not";
}

TEST_F(ImportTest, InsertOnlyReachesTheSave) {
  const std::string text = line({{"sent_time", 9000}, {"content", "new"}}) +
                           line({{"sent_time", 4000}, {"content", "old"}});
  ASSERT_EQ(import_text(text, {"--insert-only"}).status, 0);
  EXPECT_EQ(rows(kSessions), Rows{"room|2|9000|2|0|1"});
}

TEST_F(ImportTest, FetchedMessagesAreNotCompared) {
  const std::string own = line({{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}});
  ASSERT_EQ(import_text(own).status, 0);
  EXPECT_EQ(counts(import_text(own, {"--history"})), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(counts(import_text(own, {"--insert-only"})), "1 stored, 0 completed, 0 refused, 0 bad");
}

TEST_F(ImportTest, JsonForPrograms) {
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

TEST_F(ImportTest, JsonIsWrittenForAFailureToo) {
  const Outcome outcome = import_text(numbered(3) + "bad\n", {"--json", "--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(Json::parse(outcome.out)["stored"], 2);
}

TEST_F(ImportTest, TheFolderIsMadeWithThoseAbove) {
  const std::string deep = folder.file("a/b/c");
  ASSERT_EQ(run({"import", deep, "--user", "me", "-"}, numbered(1)).status, 0);
  EXPECT_EQ(corvan_test::rows(deep + "/corvan", "select count(*) from t_message"), Rows{"1"});
  EXPECT_EQ(listing(deep).size(), 1U) << "the log is folded in at the end";
  // A folder's last delimiter does not matter.
  ASSERT_EQ(run({"import", deep + "/", "--user", "me", "-"}, numbered(2)).status, 0);
  EXPECT_EQ(corvan_test::rows(deep + "/corvan", "select count(*) from t_message"), Rows{"2"});
}

TEST_F(ImportTest, AFileIsNoFolder) {
  const std::string path = write("file", "text");
  const Outcome outcome = run({"import", path, "--user", "me", "-"}, numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + path + ": is not a folder; name the store's folder\n");
  EXPECT_EQ(read_file(path), "text");
}

TEST_F(ImportTest, AnEmptyFileBecomesAStore) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  EXPECT_EQ(contents(), Rows{"1"});
}

TEST_F(ImportTest, ADamagedFileStaysAsItIs) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(5000, 'x'));
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + file() +
                ": damaged (file is not a database); keep a copy: opening it with "
                "the library deletes it; 'corvan salvage' brings out what can be read\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportTest, AStoreWithADamagedPageIsNotDeleted) {
  ASSERT_EQ(import_text(numbered(500)).status, 0);
  const std::string root = rows("select rootpage from sqlite_master where name='t_message'").at(0);
  std::string bytes = read_file(file());
  bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
  write_file(file(), bytes);
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  // What follows depends on whether the opening or the first save reads the page.
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": database disk image is malformed"), 0U)
      << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  EXPECT_EQ(read_file(file()).size(), bytes.size());
}

TEST_F(ImportTest, AStoreThatALogMakesUnreadableIsNotDeleted) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const std::string other = folder.file("other");
  std::filesystem::copy_file(file(), other);
  const WriteAhead writer(other,
                          "pragma writable_schema=on;"
                          "update sqlite_master set sql='create nothing' where name='t_sync'");
  std::filesystem::copy_file(other + "-wal", file() + "-wal");
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(2));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": damaged (malformed database schema"), 0U)
      << outcome.err;
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportTest, AForeignDatabaseStaysAsItIs) {
  std::filesystem::create_directory(store());
  plant("create table t_message(id);insert into t_message values(1)");
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": a database, but not a message store\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportTest, TheLogOfAForeignDatabaseStaysAsItIs) {
  const std::string other = folder.file("other");
  const WriteAhead writer(other, "create table t(x);insert into t values(1)");
  std::filesystem::create_directory(store());
  for (const char* suffix : {"", "-wal"}) {
    std::filesystem::copy_file(other + suffix, file() + suffix);
  }
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": a database, but not a message store\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportTest, AStoreWhoseWriterWasKilledIsTakenWithItsLog) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  {
    const WriteAhead writer(file(), "insert into t_message(content) values('in the log')");
    std::filesystem::create_directory(folder.file("killed"));
    for (const char* suffix : {"", "-wal"}) {
      std::filesystem::copy_file(file() + suffix, folder.file("killed/corvan") + suffix);
    }
  }
  ASSERT_EQ(run({"import", folder.file("killed"), "--user", "me", "-"}, numbered(1, 2)).status, 0);
  EXPECT_EQ(
      corvan_test::rows(folder.file("killed/corvan"), "select content from t_message order by id"),
      (Rows{"1", "in the log", "2"}));
}

TEST_F(ImportTest, ALockedStoreIsAClearError) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const WriteAhead writer(file(), "begin immediate");
  const Outcome outcome = import_text(numbered(2));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": in use by another process (database is locked); nothing was "
                             "changed; try again while the client rests\n");
  EXPECT_EQ(contents(), Rows{"1"});
}

TEST_F(ImportTest, ALockOfAMomentIsWaitedFor) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  auto writer = std::make_unique<WriteAhead>(file(), "begin immediate");
  std::thread release([&writer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    writer.reset();
  });
  const Outcome outcome = import_text(numbered(2));
  release.join();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(contents(), (Rows{"1", "2"}));
}

TEST_F(ImportTest, AnInterruptKeepsWholeBatches) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  // Open all the while: the last connection that closes takes the lock, and the looks below are
  // many.
  const WriteAhead other(file(), "select count(*) from t_message");
  const pid_t pid = start({"import", store(), "--user", "me", "--batch", "2", pipe},
                          open("/dev/null", O_WRONLY | O_CLOEXEC));
  const int lines = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);  // as soon as the program reads
  const std::string text = numbered(3, 2);
  EXPECT_EQ(::write(lines, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  for (int i = 0; i < 5000 && contents().size() < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  kill(pid, SIGTERM);
  EXPECT_EQ(wait(pid), -SIGTERM);
  close(lines);
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
  EXPECT_EQ(counts(import_text(numbered(4))), "1 stored, 0 completed, 3 refused, 0 bad");
}

TEST_F(ImportTest, AFailureWithinABatchLeavesNothingOfIt) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  plant(
      "create trigger t before insert on t_message when new.content='5' "
      "begin select raise(abort,'no room'); end");
  const Outcome outcome = import_text(numbered(6, 2), {"--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": no room; nothing was stored from " + log() +
                             ":3 on (at " + log() + ":4)\n");
  EXPECT_EQ(counts(outcome), "2 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
  EXPECT_EQ(rows(kSessions), Rows{"room|2|3000|3|0|3"});
}

TEST_F(ImportTest, AReadOnlyStoreIsAClearError) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const std::string log_path = write("more.jsonl", numbered(2));
  make_read_only();
  const Listing before = listing(store());
  const Outcome outcome = run({"import", store(), "--user", "me", log_path});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": attempt to write a readonly database; nothing was changed; make "
                             "the file and its folder writable\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportTest, BadUsageIsOneLineAndMakesNothing) {
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
