#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ExportTest : public ExportSample {};

TEST_F(ExportTest, JsonlHasEveryColumnBetweenHeaderAndEnd) {
  import(line({{ "content", "a \"b\"\\\n😀" }}));
  plant("update t_message set client_uid=9223372036854775807,read_status=-7");
  plant("insert into t_sync values('me',-9223372036854775808,5)");
  std::vector<Json> records = lines(output({"export", store(), "--format", "jsonl"}));
  ASSERT_EQ(records.size(), 7U);
  EXPECT_GT(records[0]["export_time"].get<int64_t>(), 1700000000000);
  records[0].erase("export_time");
  records[0].erase("corvan");
  const Json counts = {
      {"versions", 1}, {"syncs", 1}, {"sessions", 1}, {"messages", 1}, {"sequences", 1}};
  Json header = {{"type", "corvan-export"},
                 {"format", 1},
                 {"schema_version", "1"},
                 {"user_version", 1},
                 {"partial", false}};
  header.update(counts);
  Json end = {{"type", "end"}};
  end.update(counts);
  EXPECT_EQ(records[0], header);
  EXPECT_EQ(records[1], Json({{"type", "version"}, {"rowid", 1}, {"database_version", "1"}}));
  EXPECT_EQ(records[2], Json({{"type", "sync"},
                              {"rowid", 1},
                              {"user_id", "me"},
                              {"receive_time", INT64_MIN},
                              {"sent_time", 5}}));
  EXPECT_EQ(records[3], Json({{"type", "session"},
                              {"rowid", 1},
                              {"session_id", "room"},
                              {"session_type", 2},
                              {"title", ""},
                              {"draft", ""},
                              {"is_top", 0},
                              {"session_time", 1700000000000},
                              {"unread_count", 1},
                              {"mention_count", 0},
                              {"silence", 0},
                              {"latest_id", 1},
                              {"read_time", 0},
                              {"receipt_time", 0}}));
  EXPECT_EQ(records[4], Json({{"type", "message"},
                              {"id", 1},
                              {"session_id", "room"},
                              {"session_type", 2},
                              {"object_name", "CV:TxtMsg"},
                              {"content", "a \"b\"\\\n😀"},
                              {"sender", "u01"},
                              {"direction", 1},
                              {"sent_status", 0},
                              {"read_status", -7},
                              {"is_mention", 0},
                              {"sent_time", 1700000000000},
                              {"client_uid", INT64_MAX},
                              {"server_uid", ""}}));
  EXPECT_EQ(records[5],
            Json({{"type", "sequence"}, {"rowid", 1}, {"name", "t_message"}, {"seq", 1}}));
  EXPECT_EQ(records[6], end);
}

TEST_F(ExportTest, ReportsWhatTheFileHolds) {
  import_sample();
  const std::string place = folder.file("out");
  for (const std::string format : {"jsonl", "csv", "html"}) {
    const std::string to = place + "." + format;
    const Json told = json({"export", store(), "--format", format, "--output", to, "--json"});
    EXPECT_EQ(told["format"], format);
    EXPECT_EQ(told["output"], to);
    EXPECT_EQ(told["partial"], false);
    EXPECT_EQ(told["sessions"], 3);
    EXPECT_EQ(told["messages"], 6);
    EXPECT_EQ(told["files"], format == "html" ? 4 : 1);
    if (format != "html") {
      EXPECT_EQ(told["bytes"], std::filesystem::file_size(to));
    }
    EXPECT_GE(told["seconds"], 0);
  }
  EXPECT_EQ(read_file(place + ".csv"), output({"export", store(), "--format", "csv"}));
  const std::string told = output({"export", store(), "--format", "csv", "--output", place});
  EXPECT_EQ(told.find(place + ": 3 conversations, 6 messages, 1 KiB; "), 0U) << told;
}

TEST_F(ExportTest, SelectsConversationsByIdAndType) {
  import_sample();
  plant("insert into t_sync values('me',1,1)");
  const auto ids = [this](const Arguments& more) {
    Arguments arguments = {"export", store(), "--format", "jsonl"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::string text;
    for (const Json& record : lines(output(arguments))) {
      if (record["type"] == "message") text += record["id"].dump() + " ";
      if (record["type"] == "session") text += record["session_id"].get<std::string>() + " ";
      if (record["type"] == "sync") text += "sync ";
      if (record["type"] == "corvan-export") {
        EXPECT_EQ(record["partial"], !more.empty());
        EXPECT_EQ(record["syncs"], more.empty() ? 1 : 0);
      }
    }
    return text;
  };
  EXPECT_EQ(ids({}), "sync room room u02 1 2 3 4 5 6 ");
  EXPECT_EQ(ids({"room"}), "room room 1 2 3 4 ");
  EXPECT_EQ(ids({"room", "--type", "group"}), "room 1 2 ");
  EXPECT_EQ(ids({"--type", "private", "--type", "3"}), "room u02 3 4 5 6 ");
  EXPECT_EQ(ids({"u02", "room", "u02", "--type", "chatroom", "--type", "private"}),
            "room u02 3 4 5 6 ");
}

TEST_F(ExportTest, RejectsUnknownConversation) {
  import_sample();
  const std::string why = "; 'corvan list' shows all conversations\n";
  expect_refused({"no'one", "--format", "csv"}, file() + ": no conversation \"no'one\"" + why);
  expect_refused({"u02", "--type", "group", "--format", "html", "--output", folder.file("out")},
                 file() + ": no conversation \"u02\" of these types" + why);
}

TEST_F(ExportTest, ExportsMessagesWithoutConversation) {
  import_sample();
  plant("delete from t_session where session_id='u02'");
  EXPECT_EQ(lines(output({"export", store(), "--format", "jsonl"})).size(), 12U);
  const std::string csv = output({"export", store(), "--format", "csv"});
  EXPECT_NE(csv.find("\r\n5,private,\"u02\",\"\","), std::string::npos) << csv;
  EXPECT_EQ(
      output({"export", store(), "u02", "--format", "csv"}).find(std::string(kCsvHeadings) + "5,"),
      0U);
}

TEST_F(ExportTest, LeavesStoreUnchanged) {
  import_sample();
  plant("update t_message set sent_status=1");
  const Listing before = listing(store());
  output({"export", store(), "--format", "jsonl"});
  output({"export", store(), "--format", "html", "--output", folder.file("out")});
  EXPECT_EQ(listing(store()), before);
}

// An export as JSON Lines reads the tables without indexes. The other formats need the indexes, and
// notice that a row is missing.
TEST_F(ExportTest, DoesNotLoseRowsMissingFromAnIndex) {
  import_sample();
  const auto change_indexes = [this](const std::string& table, const std::string& sql) {
    plant("pragma writable_schema=on;update sqlite_master set sql=" + sql +
          " where type='index' and tbl_name='" + table + "' and sql not like '% where %'");
  };
  const auto hide_from_indexes = [&](const std::string& table, const std::string& change) {
    change_indexes(table, "sql||' where rowid>9'");
    plant(change);
    plant(
        "pragma writable_schema=on;update sqlite_master set sql=replace(sql,' where rowid>9','')");
  };
  hide_from_indexes("t_message",
                    "insert into t_message(id,session_id,session_type) values(7,'room',2)");
  const std::string why =
      " are missing from an index, and would be missing from the export; see 'corvan check'; "
      "--format jsonl reads the tables alone\n";
  for (const std::string format : {"csv", "html"}) {
    expect_refused({"--format", format, "--output", folder.file("out")},
                   file() + ": 1 of the 7 rows of t_message" + why);
  }
  const std::string text = output({"export", store(), "--format", "jsonl"});
  EXPECT_EQ(lines(text).front()["messages"], 7);
  EXPECT_EQ(lines(text).back()["messages"], 7);
  EXPECT_EQ(lines(output({"export", store(), "room", "--format", "jsonl"})).front()["messages"], 5);
  EXPECT_EQ(run({"restore", "-", folder.file("restored")}, text).status, 0);

  plant("reindex");
  plant("drop index t_session_list");
  plant("create index t_session_list on t_session(is_top,session_time,session_type)");
  hide_from_indexes("t_session", "insert into t_session(session_id,session_type) values('u03',1)");
  expect_refused({"--format", "html", "--output", folder.file("out")},
                 file() + ": 1 of the 4 rows of t_session" + why);
}

TEST_F(ExportTest, NeverReplacesExistingFile) {
  import_sample();
  const std::string place = write("out", "mine");
  expect_refused({"--format", "csv", "--output", place},
                 place + ": exists already; name a new place\n");
  EXPECT_EQ(read_file(place), "mine");
}

TEST_F(ExportTest, BadUsageIsOneLine) {
  import_sample();
  expect_refused({"--format", "html"},
                 "--format html makes a folder of pages: name it with --output\n");
  expect_refused({"--format", "csv", "--json"},
                 "--json reports on the export, but the export itself goes to standard output: "
                 "name a file for the export with --output\n");
  for (const Arguments& more : std::vector<Arguments>{{}, {"--format", "xml"}}) {
    Arguments arguments = {"export", store()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find("--format"), std::string::npos) << outcome.err;
  }
}

TEST_F(ExportTest, NamesMissingColumn) {
  import_sample();
  plant("alter table t_session rename column draft to draft_message");
  expect_refused({"--format", "jsonl"},
                 file() +
                     ": table t_session has no column \"draft\"; only a store with the "
                     "columns of this release can be exported\n");
}

TEST_F(ExportTest, NamesWhatIsLeftOut) {
  import_sample();
  plant(
      "create table notes(a);create index by_sender on t_message(sender);"
      "alter table t_session add column colour text;"
      "alter table t_sync add column sum integer as (receive_time+sent_time);"
      "drop index t_message_sent_time;create index t_message_sent_time on t_message(sent_time desc);"
      "analyze;pragma application_id=7");
  const Outcome outcome = run({"export", store(), "--format", "jsonl"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": left out, not part of a message store: table notes, "
                             "table sqlite_stat1, index by_sender, index t_message_sent_time as "
                             "it is in this file, column t_sync.sum, column t_session.colour, "
                             "application_id\n");
  EXPECT_EQ(outcome.out.find("colour"), std::string::npos);
}

TEST_F(ExportTest, WarnsAboutRowsThatRestoreMayRefuse) {
  import_sample();
  plant(
      "create table other as select * from t_session;drop table t_session;"
      "alter table other rename to t_session");
  const Outcome outcome = run({"export", store(), "room", "--format", "jsonl"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err.find("corvan: " + file() +
                             ": 'corvan restore' may refuse rows, because tables differ from a new "
                             "store's: t_session has no column draft text default '', "),
            0U)
      << outcome.err;
  const std::string end = "t_session has no key session_id,session_type; see 'corvan verify'\n";
  EXPECT_EQ(outcome.err.substr(outcome.err.size() - end.size()), end);
}

TEST_F(ExportTest, FullDiskLeavesNothing) {
  import_many(2000);
  // Escapes make the export larger than the store, so that the disk has room for the copy only.
  plant("update t_message set content=replace(hex(zeroblob(100)),'0','\"<')");
  largest_file = std::filesystem::file_size(file());
  for (const std::string format : {"jsonl", "csv", "html"}) {
    const Outcome outcome =
        run({"export", store(), "--format", format, "--output", folder.file("out")});
    EXPECT_EQ(outcome.status, 2) << format;
    EXPECT_EQ(outcome.out, "") << format;
    EXPECT_EQ(names_like("out"), Rows{}) << format;
  }
}

TEST_F(ExportTest, InterruptLeavesNothing) {
  import_many(4000);
  for (const std::string format : {"jsonl", "csv", "html"}) {
    int status = 0;
    // The export may be complete before the signal arrives.
    for (int attempt = 0; attempt < 50 && status == 0; ++attempt) {
      std::filesystem::remove_all(folder.file("out"));
      const pid_t pid = start(
          {"export", store(), "--format", format, "--output", folder.file("out")}, null_output());
      EXPECT_TRUE(wait_for_unfinished("out")) << format;
      interrupt_process(pid, interrupts()[0]);
      status = wait(pid);
    }
    EXPECT_EQ(status, interrupted_status(interrupts()[0])) << format;
    EXPECT_EQ(names_like("out"), Rows{}) << format;
    EXPECT_EQ(listing(copies()), Listing{}) << format;
  }
}

TEST_F(ExportTest, ReportsFullStandardOutput) {
  import_sample();
  for (const std::string format : {"jsonl", "csv"}) {
    EXPECT_EQ(wait(start({"export", store(), "--format", format}, full_output())), 2);
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written: " +
                              std::string(std::strerror(full_output_error())) + "\n");
  }
}

// More than ten times as many messages need hardly more memory.
TEST_F(ExportTest, MemoryDoesNotGrowWithTheStore) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the address sanitizer keeps freed memory";
#endif
  const std::string jsonl = folder.file("out.jsonl");
  const auto run_all = [&] {
    output({"export", store(), "--format", "jsonl", "--output", jsonl});
    output({"restore", jsonl, folder.file("restored")});
    output({"export", store(), "--format", "csv", "--output", folder.file("out.csv")});
    output({"export", store(), "--format", "html", "--output", folder.file("out.html")});
    for (const char* name : {"out.jsonl", "out.csv", "out.html", "restored"}) {
      std::filesystem::remove_all(folder.file(name));
    }
    return most_memory_used();
  };
  import_many(80);
  plant("update t_message set content=hex(zeroblob(4000))");
  const std::uint64_t small = run_all();
  plant(
      "with n(i) as (select 1 union all select i+1 from n where i<1000) "
      "insert into t_message(session_id,session_type,content,sent_time) "
      "select 'room',2,hex(zeroblob(4000)),1700000000000+i from n");
  EXPECT_GT(std::filesystem::file_size(file()), 7U << 20);
  EXPECT_LT(run_all(), small + (5U << 20));
}

}  // namespace
}  // namespace corvan_test
