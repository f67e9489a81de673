#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"
#include "tools/import/record_value.h"

namespace corvan_test {
namespace {

// A column's value with its storage class, to the last bit.
std::string exact(const std::string& column) {
  return "typeof(" + column + ")||':'||case typeof(" + column +
         ") when 'real' then printf('%!.20g'," + column + ") else hex(" + column + ") end";
}

class RestoreTest : public ExportSample {
 protected:
  // Every value of every table, and what the file is beside its rows.
  static Rows all_of(const std::string& store_file) {
    Rows result;
    for (const std::string table :
         {"t_message", "t_session", "t_sync", "t_version", "sqlite_sequence"}) {
      std::string sql = "select '" + table + "',rowid";
      for (const std::string& column :
           corvan_test::rows(store_file, "select name from pragma_table_info('" + table + "')")) {
        sql += "," + exact(column);
      }
      for (const std::string& row : corvan_test::rows(store_file, sql + " from " + table)) {
        result.push_back(row);
      }
    }
    for (const char* sql :
         {"select type,name,tbl_name,sql from sqlite_master order by 1,2", "pragma user_version",
          "pragma page_size", "pragma journal_mode", "pragma encoding", "pragma integrity_check"}) {
      for (const std::string& row : corvan_test::rows(store_file, sql)) result.push_back(row);
    }
    return result;
  }

  std::string exported(const Arguments& more = {}) {
    Arguments arguments = {"export", store(), "--format", "jsonl"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return output(arguments);
  }

  std::string restored() const { return folder.file("restored"); }
  std::string restored_file() const { return restored() + "/corvan"; }

  // Restores this text and expects one line of error that begins so, and nothing left.
  void expect_bad(const std::string& text, const std::string& error) {
    const Outcome outcome = run({"restore", write("bad.jsonl", text), restored()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + folder.file("bad.jsonl") + error + "\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(names_like("restored"), Rows{});
  }

  static std::string without_time(const std::string& text) {
    Json header = Json::parse(text.substr(0, text.find('\n')));
    header.erase("export_time");
    return header.dump() + text.substr(text.find('\n'));
  }
};

TEST_F(RestoreTest, TheStoreIsTheSame) {
  import_sample();
  import(line({{"sender", "me"}, {"is_receive", false}, {"sent_status", 1}, { "client_uid", 3 }}));
  plant("delete from t_message where id in(2,7)");  // ids are not given again
  plant("insert into t_sync values('me',1,2)");
  const std::string file_name = write("out.jsonl", exported());
  const Outcome outcome = run({"restore", file_name, restored()});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.find(restored() + ": 3 conversations, 5 messages; "), 0U) << outcome.out;
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
  EXPECT_EQ(listing(restored()).size(), 1U);
  EXPECT_EQ(output({"check", restored()}), "ok\n");
  EXPECT_EQ(output({"list", restored()}), output({"list", store()}));
}

TEST_F(RestoreTest, AnEmptyStoreIsTheSame) {
  import_sample();
  plant("delete from t_message;delete from t_session;delete from sqlite_sequence");
  const Outcome outcome = run({"restore", "-", restored()}, exported());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
}

TEST_F(RestoreTest, WhateverARowHoldsComesBack) {
  import_sample();
  plant(
      "update t_message set client_uid=-9223372036854775808,sent_time=9223372036854775807,"
      "content=cast(x'610062' as text),sender=cast(x'fffe00ed' as text) where id=1;"
      "update t_message set content=x'',sender=x'00ff',sent_status='text',direction=1.5,"
      "read_status=9e999,is_mention=-9e999,client_uid=x'31',sent_time=null where id=2;"
      "update t_message set content='\"}{\\'||char(10,13,9,1,127,8232,65533,128512),"
      "server_uid=null,session_id=null,session_type=null where id=3;"
      "update t_message set sent_time=0.1,client_uid=1e300,read_status='1x',id=-5 where id=4;"
      "update t_message set content=cast(x'eda080' as text),is_mention=-0.0 where id=5;"
      "update t_session set title=cast(x'c3' as text),draft=null,latest_id='',rowid=77 "
      "where session_type=3;"
      "insert into t_session(session_id) values(null),(null),(x'6162');"
      "insert into t_sync values(null,null,'later'),('u''01',1,2),(x'00',3,4);"
      "insert into t_version values('2'),(null),(x'33');"
      "update sqlite_sequence set seq=9223372036854775807;"
      "insert into sqlite_sequence values('other','text'),(null,1.25);"
      "pragma user_version=-3");
  const std::string text = exported();
  const Outcome outcome = run({"restore", "-", restored()}, text);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
  EXPECT_EQ(without_time(output({"export", restored(), "--format", "jsonl"})), without_time(text));
}

TEST_F(RestoreTest, ATextOfControlCharactersTakesTwiceItsRoom) {
  import(line({}));
  plant("update t_message set content=replace(hex(zeroblob(1000)),'0',char(1))||'\"'");
  const std::string text = exported();
  EXPECT_EQ(lines(text)[3]["content"]["text_hex"].get<std::string>().size(), 4002U);
  EXPECT_EQ(run({"restore", "-", restored()}, text).status, 0);
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
}

TEST_F(RestoreTest, ChosenConversationsAreRestoredAndSaidToBePartial) {
  import_sample();
  plant("insert into t_sync values('me',1,2)");
  const std::string file_name = write("out.jsonl", exported({"room", "--type", "group"}));
  EXPECT_NE(output({"restore", file_name, restored()}).find("\na partial export: "),
            std::string::npos);
  const std::string messages = "select * from t_message where session_type=2";
  EXPECT_EQ(corvan_test::rows(restored_file(), "select * from t_message"), rows(messages));
  EXPECT_EQ(corvan_test::rows(restored_file(), "select * from t_session"),
            rows("select * from t_session where session_type=2"));
  EXPECT_EQ(corvan_test::rows(restored_file(), "select * from t_sync"), Rows{});
  // New messages get ids that no message of the whole store had.
  EXPECT_EQ(corvan_test::rows(restored_file(), "select seq from sqlite_sequence"), Rows{"6"});
}

TEST_F(RestoreTest, JsonTellsTheNumbersOfRows) {
  import_sample();
  Json told = json({"restore", write("out.jsonl", exported()), restored(), "--json"});
  EXPECT_GE(told["seconds"], 0);
  told.erase("seconds");
  EXPECT_EQ(told, Json({{"partial", false},
                        {"versions", 1},
                        {"syncs", 0},
                        {"sessions", 3},
                        {"messages", 6},
                        {"sequences", 1}}));
}

TEST_F(RestoreTest, AFileThatWasCutOffIsRefused) {
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
  expect_bad(text.substr(0, text.size() - 2),
             ":7: not valid JSON at byte 77, where it ends: cut off; export again");
}

TEST_F(RestoreTest, EachLineIsChecked) {
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
  const std::string source = "; 'corvan verify' tells what is wrong with the exported store";
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
       "field \"content\": \"text_hex\" must hold pairs of the digits 0-9 and a-f"},
      {3, "\"content\":\"hi\"", R"("content":{"text_hex":"0G"})",
       "field \"content\": \"text_hex\" must hold pairs of the digits 0-9 and a-f"},
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
       "not valid JSON at byte 18, where it ends: cut off; export again"},
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
  // A record less, with an end that agrees.
  std::string less = text;
  less.erase(less.find("{\"type\":\"message\",\"id\":2"), good[4].size() + 1);
  less.replace(less.rfind("\"messages\":2"), 12, "\"messages\":1");
  expect_bad(less, ":6: field \"messages\": 2 were exported, but 1 are in the file; export again");
}

// A line takes its own size of memory and a few more, whatever is in it.
TEST_F(RestoreTest, ALineOfAnyShapeIsRefusedWithoutMuchMemory) {
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
  most_memory = rlim_t{128} << 20;
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

TEST_F(RestoreTest, WhatIsNoExportIsToldBeforeItsKeys) {
  const std::string error =
      ":1: not an export: the first line must be of the type \"corvan-export\", as 'corvan export "
      "--format jsonl' writes it; a log of messages is read by 'corvan import'";
  expect_bad(R"({"unknown":[1,{"a":[2]}],"more":{"a":{"b":1}},"type":"log"})", error);
  expect_bad(R"({"is_receive":true,"sent_time":[[[]]]})", error);
}

TEST_F(RestoreTest, EmptyLinesArePassedOver) {
  import_sample();
  std::string text = " \n\n";
  for (const Json& record : lines(exported())) text += record.dump() + "\n\t\r\n";
  EXPECT_EQ(run({"restore", "-", restored()}, text).status, 0);
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
  std::filesystem::remove_all(restored());
  expect_bad("\n", ": empty, not an export");
  expect_bad(text + "{}", ":29: a line after the record \"end\"");
}

TEST_F(RestoreTest, AValueThatSqliteDoesNotTakeIsAnError) {
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

TEST_F(RestoreTest, WhatCannotBeReadOrMadeIsAnError) {
  import_sample();
  const std::string good = write("out.jsonl", exported());
  const std::string long_name = folder.file(std::string(300, 'n'));
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{folder.file("none"), restored()}, folder.file("none") + ": No such file or directory\n"},
      {{long_name, restored()}, long_name + ": File name too long\n"},
      {{folder.path(), restored()}, folder.path() + ": is a folder; name a file\n"},
      {{good, store()}, store() + ": is there already; name a place where nothing is\n"},
      {{good, folder.file("a/b")}, folder.file("a") + ": no such folder; make it first\n"},
      {{good, good + "/b"}, good + ": not a folder; name one\n"},
  };
  const Rows before = all_of(file());
  for (const auto& [places, error] : cases) {
    const Outcome outcome = run({"restore", places[0], places[1]});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + error);
  }
  EXPECT_EQ(all_of(file()), before);
  EXPECT_EQ(names_like("restored"), Rows{});
}

TEST_F(RestoreTest, AFullDiskLeavesNothing) {
  import_many(2000);
  const std::string good = write("out.jsonl", exported());
  largest_file = 100 << 10;
  const Outcome outcome = run({"restore", good, restored()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + restored() + ": "), 0U) << outcome.err;
  EXPECT_EQ(names_like("restored"), Rows{});
}

TEST_F(RestoreTest, AnInterruptLeavesNothing) {
  import_sample();
  const std::string text = exported();
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const int signal_number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    const pid_t pid = start({"restore", pipe, restored()}, null());
    const int writer = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string half = text.substr(0, text.size() / 2);
    ASSERT_EQ(::write(writer, half.data(), half.size()), static_cast<ssize_t>(half.size()));
    EXPECT_TRUE(wait_for_unfinished("restored"));
    kill(pid, signal_number);
    EXPECT_EQ(wait(pid), -signal_number);
    close(writer);
    EXPECT_EQ(names_like("restored"), Rows{});
  }
}

TEST_F(RestoreTest, HelpIsComplete) {
  const std::string text = output({"restore", "--help"});
  for (const char* word :
       {"FILE", "NEWFOLDER", "--json", "standard input", "partial", "sequences"}) {
    EXPECT_NE(text.find(word), std::string::npos) << word;
  }
  EXPECT_EQ(text.find(" FOLDER"), std::string::npos);
  EXPECT_EQ(run({"restore", "only-one"}).status, 2);
}

}  // namespace
}  // namespace corvan_test
