#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/tools/program.h"

namespace {

using namespace corvan_test;

class StatsTest : public ToolTest {
 protected:
  StatsTest() {
    import(line({{"sent_time", 1777636800000},
                 { "content",
                   "Grüße" }}) +  // 2026-05-01 12:00:00
           line({{"sent_time", 1780272000000 - 1},
                 { "is_receive",
                   false }}) +  // a millisecond before June
           line({{"sent_time", 1780272000000},
                 { "session_id",
                   "other" }}) +
           line({{"sent_time", 1780272000001},
                 { "session_type",
                   1 }}));
  }

  Json stats() { return json({"stats", store(), "--json"}); }
};

TEST_F(StatsTest, CountsRowsConversationsAndMonths) {
  const Json result = stats();
  Json tables;
  for (const Json& table : result["tables"]) tables[std::string(table["name"])] = table["rows"];
  EXPECT_EQ(tables, Json({{"sqlite_sequence", 1},
                          {"t_message", 4},
                          {"t_session", 3},
                          {"t_sync", 0},
                          {"t_version", 1}}));
  EXPECT_EQ(result["conversations"], 3);
  EXPECT_EQ(
      result["largest"][0],
      Json({{"session_id", "room"}, {"session_type", 2}, {"messages", 2}, {"content_bytes", 9}}));
  EXPECT_EQ(result["largest"].size(), 3U);
  EXPECT_EQ(result["months"],
            Json::array({{{"month", "2026-05"}, {"messages", 2}, {"received", 1}},
                         {{"month", "2026-06"}, {"messages", 2}, {"received", 2}}}));
}

TEST_F(StatsTest, AVirtualTableOfAnUnknownModuleHasAnUnknownNumberOfRows) {
  const Json before = stats();
  plant(
      "pragma writable_schema=on;insert into sqlite_master(type,name,tbl_name,rootpage,sql) "
      "values('table','places','places',0,'CREATE VIRTUAL TABLE places USING atlas(x)')");
  Json after = stats();
  ASSERT_EQ(after["tables"].size(), before["tables"].size() + 1);
  EXPECT_EQ(after["tables"][0]["name"], "places");
  EXPECT_TRUE(after["tables"][0]["rows"].is_null());
  after["tables"].erase(0);
  EXPECT_EQ(after["tables"], before["tables"]);
  EXPECT_EQ(after["largest"], before["largest"]);
  const std::string text = output({"stats", store()});
  const std::string line = text.substr(text.find("\nplaces") + 1);
  EXPECT_NE(line.substr(0, line.find('\n')).find("unknown"), std::string::npos) << text;
}

TEST_F(StatsTest, TheSizesAddUpToTheFile) {
  const Json result = stats();
  EXPECT_EQ(result["file_bytes"], std::filesystem::file_size(file()));
  EXPECT_EQ(result["log_bytes"], 0);
  EXPECT_EQ(result["page_size"], 4096);
  std::int64_t sum = 4096;  // the schema's page
  for (const char* kind : {"tables", "indexes"}) {
    for (const Json& part : result[kind]) {
      if (part["bytes"].is_null()) GTEST_SKIP() << "this SQLite has no table of sizes";
      sum += part["bytes"].get<std::int64_t>();
    }
  }
  // The schema may take more than its first page.
  const std::int64_t rest = result["file_bytes"].get<std::int64_t>() -
                            4096 * result["free_pages"].get<std::int64_t>() - sum;
  EXPECT_GE(rest, 0);
  EXPECT_LE(rest, 4 * 4096);
}

TEST_F(StatsTest, CountsTheLogAndItsContent) {
  const WriteAhead writer(file(), "delete from t_message where session_id='other'");
  const Json result = stats();
  EXPECT_EQ(result["log_bytes"], std::filesystem::file_size(file() + "-wal"));
  EXPECT_EQ(result["conversations"], 2);
}

TEST_F(StatsTest, FreePagesMayExceedTheFile) {
  const WriteAhead writer(file(),
                          "insert into t_message(content) values(zeroblob(1000000));"
                          "delete from t_message where content=zeroblob(1000000)");
  const Json result = stats();
  EXPECT_GT(result["free_pages"].get<std::int64_t>() * 4096, result["file_bytes"]);
  EXPECT_EQ(output({"stats", store()}).find("of which"), std::string::npos);
}

TEST_F(StatsTest, CountsTimesWithoutADateSeparately) {
  plant(
      "update t_message set sent_time=0 where id=1;"
      "update t_message set sent_time=-62167219200000 where id=2;"
      "update t_message set sent_time=9223372036854775807 where id=3");
  EXPECT_EQ(stats()["months"][0], Json({{"month", nullptr}, {"messages", 3}, {"received", 2}}));
  EXPECT_NE(output({"stats", store()}).find("no date"), std::string::npos);
}

TEST_F(StatsTest, LimitsTheLargestConversations) {
  EXPECT_EQ(json({"stats", store(), "--json", "--limit", "1"})["largest"].size(), 1U);
  const std::string text = output({"stats", store(), "--limit", "1"});
  EXPECT_NE(text.find("largest of 3 conversations"), std::string::npos) << text;
  EXPECT_EQ(text.find("other"), std::string::npos) << text;
}

TEST_F(StatsTest, AStoreWithoutMessagesHasStats) {
  plant("delete from t_message");
  const Json result = stats();
  EXPECT_EQ(result["conversations"], 0);
  EXPECT_EQ(result["months"], Json::array());
  EXPECT_NE(output({"stats", store()}).find("t_session"), std::string::npos);
}

}  // namespace
