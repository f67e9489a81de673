// Exports with lines that restore must reject.

#include <sqlite3.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/restore_sample.h"
#include "tools/import/record_value.h"

namespace corvan_test {
namespace {

class RestoreLinesTest : public RestoreSample {};

TEST_F(RestoreLinesTest, RejectsTruncatedFile) {
  import(line({}) + line({{ "sent_time", 1700000001000 }}));
  const std::string text = exported();
  expect_bad("", ": empty, not an export");
  int line_number = 0;
  for (std::size_t end = text.find('\n'); end + 1 < text.size(); end = text.find('\n', end + 1)) {
    ++line_number;
    const std::string why = ": ends after line " + std::to_string(line_number) +
                            " without the record \"end\": it was cut off; export again";
    expect_bad(text.substr(0, end + 1), why);
    expect_bad(text.substr(0, end), why);
  }
  EXPECT_EQ(line_number, 6);
  expect_bad(
      text.substr(0, text.size() - 2),
      ":7: not valid JSON at byte 77, the end of the line: the file was cut off; export again");
}

TEST_F(RestoreLinesTest, ChecksEachLine) {
  import(line({}) + line({{ "sent_time", 1700000001000 }}));
  const std::string text = exported();
  std::vector<std::string> good;  // header, version, session, message, message, sequence, end
  for (const Json& record : lines(text)) good.push_back(record.dump());
  ASSERT_EQ(good.size(), 7U);
  struct Case {
    std::size_t at;
    std::string from;  // replaced; empty: the whole line
    std::string to;
    std::string error;
  };
  const std::string whole = "must be a whole number of 64 bits";
  const std::string source = "; run 'corvan verify' on the exported store";
  const std::vector<Case> cases = {
      {0, "", R"({"type":"message"})",
       "not an export: the first line must be of the type \"corvan-export\", as 'corvan export "
       "--format jsonl' writes it; a log of messages is read by 'corvan import'"},
      {0, "", R"({"session_id":"room"})",
       "not an export: the first line must be of the type \"corvan-export\", as 'corvan export "
       "--format jsonl' writes it; a log of messages is read by 'corvan import'"},
      {0, "", "[1]", "not a JSON object"},
      {0, "\"format\":1", "\"format\":2,\"new\":1",
       "field \"format\": made by a newer corvan; update"},
      {0, "\"format\":1", "\"format\":\"1\"",
       "field \"format\": must be a whole number from 1 to 9223372036854775807"},
      {0, "\"partial\":false", "\"partial\":0", "field \"partial\": must be true or false"},
      {0, "\"partial\":false", "\"total\":0,\"partial\":false", "field \"total\": unknown"},
      {0, "\"schema_version\":\"1\",", "", "field \"schema_version\": missing"},
      {0, "\"schema_version\":\"1\"", "\"schema_version\":1",
       "field \"schema_version\": must be a text"},
      {0, "\"export_time\":", "\"export_time\":-",
       "field \"export_time\": must be a whole number from 0 to 9223372036854775807"},
      {0, "\"user_version\":1", "\"user_version\":18446744073709551615",
       "field \"user_version\": must be a whole number from -2147483648 to 2147483647"},
      {0, "\"messages\":2", "\"messages\":18446744073709551615",
       "field \"messages\": must be a whole number from 0 to 281474976710656"},
      {0, "\"messages\":2", "\"messages\":-1",
       "field \"messages\": must be a whole number from 0 to 281474976710656"},
      {2, "\"type\":\"session\"", "\"type\":\"chat\"", "field \"type\": unknown: \"chat\""},
      {2, "\"type\":\"session\"", "\"type\":1", "field \"type\": must be a text"},
      {2, "\"draft\":\"\",", "", "field \"draft\": missing"},
      {2, "\"draft\"", "\"drift\":1,\"draft\"", "field \"drift\": unknown"},
      {2, "\"draft\"", "\"title\":\"\",\"draft\"", "field \"title\": given twice"},
      {3, "\"content\":\"hi\"", "\"content\":1", "field \"content\": must be a text"},
      {3, "\"content\":\"hi\"", "\"content\":true", "field \"content\": must be a text"},
      {3, "\"content\":\"hi\"", "\"content\":[\"hi\"]", "field \"content\": must be a text"},
      {3, "\"content\":\"hi\"", "\"content\":{}", "field \"content\": must have one member"},
      {3, "\"content\":\"hi\"", R"("content":{"text_hex":"0"})",
       "field \"content\": \"text_hex\" must consist of pairs of the digits 0-9 and a-f"},
      {3, "\"content\":\"hi\"", R"("content":{"text_hex":"0G"})",
       "field \"content\": \"text_hex\" must consist of pairs of the digits 0-9 and a-f"},
      {3, "\"content\":\"hi\"", R"("content":{"blob_hex":7})",
       "field \"content\": \"blob_hex\" must be a text"},
      {3, "\"content\":\"hi\"", R"("content":{"base64":"aGk="})",
       "field \"content\": unknown key \"base64\""},
      {3, "\"content\":\"hi\"", R"("content":{"integer":7})",
       "field \"content\": the column cannot hold this: it becomes text" + source},
      {3, "\"sent_time\":1700000000000", "\"sent_time\":\"1\"", "field \"sent_time\": " + whole},
      {3, "\"sent_time\":1700000000000", "\"sent_time\":1.0", "field \"sent_time\": " + whole},
      {3, "\"sent_time\":1700000000000", "\"sent_time\":9223372036854775808",
       "field \"sent_time\": " + whole},
      {3, "\"sent_time\":1700000000000", "\"sent_time\":1e999",
       "field \"sent_time\": a number is out of range"},
      {3, "\"sent_time\":1700000000000", R"("sent_time":{"text":"12"})",
       "field \"sent_time\": the column cannot hold this: it becomes integer" + source},
      {3, "\"sent_time\":1700000000000", R"("sent_time":{"real":"0.10"})",
       "field \"sent_time\": \"real\" is not a floating-point number as an export writes it"},
      {3, "\"id\":1", "\"id\":null", "field \"id\": must be a whole number"},
      {4, "\"id\":2", "\"id\":1",
       "an earlier line has the same key (UNIQUE constraint failed: t_message.id)" + source},
      {4, "", good[2], "a record \"session\" after one of the type \"message\""},
      {3, "", good[2],
       "an earlier line has the same key (UNIQUE constraint failed: t_session.rowid)" + source},
      {3, "", "{\"type\":\"message\"",
       "not valid JSON at byte 18, the end of the line: the file was cut off; export again"},
      {3, "\"content\":\"hi\"", std::string("\"content\":\"\0\"", 13),
       "not valid JSON at byte 100"},
      {3, "\"content\":\"hi\"", "\"content\":\"\xff\"", "not valid JSON at byte 100"},
      {6, "\"messages\":2", "\"messages\":3",
       "field \"messages\": 3 were exported, but 2 are in the file; export again"},
      {6, "\"type\":\"end\"", "\"type\":\"end\",\"more\":1", "field \"more\": unknown"},
  };
  for (const Case& one : cases) {
    std::vector<std::string> changed = good;
    std::string& record = changed[one.at];
    if (one.from.empty()) {
      record = one.to;
    } else {
      ASSERT_NE(record.find(one.from), std::string::npos) << one.from;
      record.replace(record.find(one.from), one.from.size(), one.to);
    }
    std::string all;
    for (const std::string& part : changed) all += part + "\n";
    SCOPED_TRACE(one.to);
    expect_bad(all, ":" + std::to_string(one.at + 1) + ": " + one.error);
  }
  expect_bad(text + "{}\n", ":8: a line after the record \"end\"");
  Json header = lines(text)[0];
  header.erase("corvan");
  expect_bad(header.dump() + text.substr(text.find('\n')), ":1: field \"corvan\": missing");
  // One record is missing, and the last line agrees with that.
  std::string less = text;
  less.erase(less.find("{\"type\":\"message\",\"id\":2"), good[4].size() + 1);
  less.replace(less.rfind("\"messages\":2"), 12, "\"messages\":1");
  expect_bad(less, ":6: field \"messages\": 2 were exported, but 1 are in the file; export again");
}

// For lines of any content, memory use stays below a small multiple of the line's size.
TEST_F(RestoreLinesTest, RejectsHugeLinesWithLittleMemory) {
  import(line({}));
  std::vector<std::string> good;
  for (const Json& record : lines(exported())) good.push_back(record.dump() + "\n");
  constexpr std::size_t kSize = std::size_t{4} << 20;
  const auto repeated = [](const std::string& part) {
    std::string text;
    text.reserve(kSize + part.size());
    while (text.size() < kSize) text += part;
    return text;
  };
  std::string many_keys;
  for (int i = 0; many_keys.size() < kSize; ++i) many_keys += ",\"k" + std::to_string(i) + "\":0";
  std::string many_members = many_keys.substr(1);
  const std::string message = good[3].substr(0, good[3].find("\"content\":\"hi\""));
  const std::string rest = good[3].substr(message.size() + 14);
  ASSERT_EQ(message + "\"content\":\"hi\"" + rest, good[3]);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {repeated("["), "not a JSON object"},
      {"[" + repeated("1,") + "1]", "not a JSON object"},
      {repeated("{\"a\":"), "field \"a\": nested too deeply"},
      {"{\"type\":" + repeated("["), "field \"type\": nested too deeply"},
      {"{\"a\":" + repeated("[{\"b\":"), "field \"a\": nested too deeply"},
      {"{\"a\":[" + repeated("1,") + "1]," + message.substr(1) + "\"content\":\"hi\"" + rest,
       "field \"a\": unknown"},
      {message + "\"content\":[" + repeated("1,") + "1]" + rest,
       "field \"content\": must be a text"},
      {message + "\"content\":[" + repeated("[],") + "1]" + rest,
       "field \"content\": must be a text"},
      {message + "\"content\":{" + many_members + "}" + rest,
       "field \"content\": must have one member"},
      {message + "\"content\":\"hi\"" + many_keys + rest, "field \"k0\": unknown"},
      {"{\"" + repeated("x") + "\":1," + message.substr(1) + "\"content\":\"hi\"" + rest,
       "field \"" + std::string(100, 'x') + "\u2026\": unknown"},
      {"{\"type\":\"" + repeated("x") + "\"}",
       "field \"type\": unknown: \"" + std::string(100, 'x') + "\u2026\""}};
  most_memory = std::uint64_t{128} << 20;
  most_seconds = 60;
  for (const auto& [record, error] : cases) {
    SCOPED_TRACE(error);
    const std::string ended = record.back() == '\n' ? record : record + "\n";
    expect_bad(good[0] + good[1] + good[2] + ended, ":4: " + error);
  }
  const Outcome outcome = run({"restore", "-", restored()}, repeated("["));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: standard input:1: longer than 1 MiB\n");
}

TEST_F(RestoreLinesTest, RecognisesOtherFilesBeforeCheckingKeys) {
  const std::string error =
      ":1: not an export: the first line must be of the type \"corvan-export\", as 'corvan export "
      "--format jsonl' writes it; a log of messages is read by 'corvan import'";
  expect_bad(R"({"unknown":[1,{"a":[2]}],"more":{"a":{"b":1}},"type":"log"})", error);
  expect_bad(R"({"is_receive":true,"sent_time":[[[]]]})", error);
}

TEST_F(RestoreLinesTest, ReportsValuesThatSqliteRejects) {
  sqlite3* db = nullptr;
  sqlite3_stmt* stmt = nullptr;
  ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_prepare_v2(db, "select ?", -1, &stmt, nullptr), SQLITE_OK);
  sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 100);
  const std::string text(101, '1');
  const std::string hex(202, '1');
  const auto bind = [stmt](const Json& value) {
    bool needs_check = false;
    return corvan_tool::bind_value(stmt, 1, value, {"content", true}, needs_check);
  };
  for (const Json& value :
       {Json(text), Json({{"text", text}}), Json({{"text_hex", hex}}), Json({{"blob_hex", hex}})}) {
    EXPECT_EQ(bind(value), "string or blob too big") << value;
  }
  EXPECT_EQ(bind("short"), "");
  sqlite3_finalize(stmt);
  sqlite3_close(db);
}

}  // namespace
}  // namespace corvan_test
