#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ExportTest : public ExportSample {};

constexpr const char* kHeadings =
    "\xEF\xBB\xBF"
    "id,kind,session_id,title,time_utc,sender,direction,object_name,content,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid\r\n";

TEST_F(ExportTest, CsvIsOneRecordAMessageInOrder) {
  import(line({{"content", "second"},
               {"sent_time", 1700000002000},
               { "server_uid",
                 "s2" }}) +
         line({{"content", "first, \"quoted\"\nline"},
               { "is_mention",
                 true }}) +
         line({{"session_id", "u02"},
               {"session_type", 1},
               {"sender", "me"},
               {"is_receive", false},
               {"sent_status", 2},
               {"client_uid", 7},
               { "content",
                 "下午开会吗？" }}));
  plant("update t_session set title='Tea, daily' where session_id='room'");
  EXPECT_EQ(output({"export", store(), "--format", "csv"}),
            std::string(kHeadings) +
                R"(2,group,"room","Tea, daily",2023-11-14 22:13:20,"u01",received,"CV:TxtMsg",)"
                "\"first, \"\"quoted\"\"\nline\",sent,unread,1,1700000000000,0,\"\"\r\n"
                R"(1,group,"room","Tea, daily",2023-11-14 22:13:22,"u01",received,"CV:TxtMsg",)"
                "\"second\",sent,unread,0,1700000002000,0,\"s2\"\r\n"
                R"(3,private,"u02","",2023-11-14 22:13:20,"me",own,"CV:TxtMsg",)"
                "\"下午开会吗？\",failed,read,0,1700000000000,7,\"\"\r\n");
}

TEST_F(ExportTest, CsvTextsAreNoFormulasAndHoldNoZeroBytes) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"'=1+1'", "'=1+1"},
      {"'+1'", "'+1"},
      {"'-1'", "'-1"},
      {"'@a'", "'@a"},
      {"char(9)||'=1'", "'\t'=1"},
      {"char(13)||'=1'", "'\r'=1"},
      {"char(10)||'=1'", "'\n'=1"},
      {"char(9)||'1'", "'\t1"},
      {"' =1'", " '=1"},
      {"'＝1'", "'＝1"},
      {"'＋1'", "'＋1"},
      {"'－1'", "'－1"},
      {"'＠a'", "'＠a"},
      {"'1=1'", "1=1"},
      {"'a,=1'||char(10)||'b,=1, -2,c'", "a,=1\nb,'=1, '-2,c"},
      {"'a,b'||char(8232)||'c,=1'", "a,b\u2028c,'=1"},
      {"'a;=1'", "a;'=1"},
      {"'a،=1，-2、@b，c'", "a،'=1，'-2、'@b，c"},
      {"char(160,8203,12288,65279)||'=1'", "\u00A0\u200B\u3000\uFEFF'=1"},
      {"'a;'||char(65279)||'=1'||char(160)||'=2'", "a;\uFEFF'=1\u00A0=2"},
      {"'a; +1;b;-1|@c'||char(9)||'=1'", "a; '+1;b;'-1|'@c\t'=1"},
      {"'list:'||char(10)||'- milk'||char(13,10)||'- tea'", "list:\n'- milk\r\n'- tea"},
      {"'a؛=1；＝2'||char(8232)||'=3'", "a؛'=1；'＝2\u2028'=3"},
      {"'a;\"=1'", "a;\"\"'=1"},
      {"char(9,9,9)||'=1'", "'\t\t\t'=1"},
      {"char(10)||' \"'||char(9)||' =1'", "'\n \"\"\t '=1"},
      {"'5 - 3 = 2 :-) a,b; c|d me@x;y'", "5 - 3 = 2 :-) a,b; c|d me@x;y"},
      {"cast(x'610062' as text)",
       "a\xEF\xBF\xBD"
       "b"},
      {"cast(x'61ff62' as text)",
       "a\xEF\xBF\xBD"
       "b"},
      {"null", ""},
  };
  import(line({}));
  for (const auto& [sql, field] : cases) {
    plant("update t_message set content=" + sql);
    EXPECT_EQ(output({"export", store(), "--format", "csv"}),
              std::string(kHeadings) +
                  R"(1,group,"room","",2023-11-14 22:13:20,"u01",received,"CV:TxtMsg",")" + field +
                  "\",sent,unread,0,1700000000000,0,\"\"\r\n")
        << sql;
  }
}

// The cells of a file as a program reads it that separates fields by `separator` and takes quotes
// for such only at the beginning of a field. Some programs end a record at each line end.
std::vector<std::string> cells(const std::string& csv, char separator, bool splits_quoted) {
  enum { kBegin, kPlain, kQuoted, kAfterQuote } state = kBegin;
  std::vector<std::string> all(1);
  for (const char c : csv) {
    const bool ends_line = c == '\n' || c == '\r';
    if (state == kBegin && c == '"') {
      state = kQuoted;
    } else if (state == kQuoted && c == '"') {
      state = kAfterQuote;
    } else if ((ends_line && splits_quoted) ||
               (state != kQuoted && (c == separator || ends_line))) {
      all.emplace_back();
      state = kBegin;
    } else {
      all.back() += c;
      const bool goes_on = state == kQuoted || (state == kAfterQuote && c == '"');
      state = goes_on ? kQuoted : kPlain;
    }
  }
  return all;
}

void expect_no_formula(const std::string& csv, char separator, bool splits_quoted) {
  for (const std::string& cell : cells(csv, separator, splits_quoted)) {
    const std::size_t first = cell.find_first_not_of(" \t");
    const bool is_formula = first != std::string::npos && std::string("=+-@").find(cell[first]) < 4;
    EXPECT_FALSE(is_formula) << cell << " with " << separator << " in " << csv;
  }
}

TEST_F(ExportTest, NoProgramFindsAFormulaInCsv) {
  import(line({}));
  for (const char* const text :
       {"=1+1", "x;=1+1", "x;\"=1+1", "x;\"\"\"=1+1", ";=1+1", "x;;=1;", "x|@y", "x\t-1", "x\n=1",
        "x;\n=1\n", "x; =1", "x;\t=1", "\"x\";\"=1\"", "x;\" =1", "x\r\n+1;\r=1", "x\t\"\"+1",
        "x\ny,=1+1", "x,=1\r\n,=1"}) {
    plant("update t_message set content='" + std::string(text) + "',sender=content,server_uid='" +
          text + "',object_name=content,client_uid=content");
    plant("update t_session set title='" + std::string(text) + "'");
    const std::string csv = output({"export", store(), "--format", "csv"});
    for (const char separator : {',', ';', '\t', '|'}) {
      for (const bool splits_quoted : {false, true}) {
        expect_no_formula(csv, separator, splits_quoted);
      }
    }
  }
}

TEST_F(ExportTest, ALineEndInOneTextLetsNoFormulaIntoTheNext) {
  import(line({}));
  plant("update t_message set object_name='a'||char(10),content='b,=1+1'");
  const std::string csv = output({"export", store(), "--format", "csv"});
  expect_no_formula(csv, ',', true);
  EXPECT_NE(csv.find("\"b,'=1+1\""), std::string::npos) << csv;
}

TEST_F(ExportTest, CsvOfManyTabsTakesTimeByTheirNumber) {
  constexpr std::size_t kTabs = 1000000;
  import(line({}));
  plant("update t_message set content=replace(printf('%.*c'," + std::to_string(kTabs) +
        ",'x'),'x',char(9))||'=1'");
  most_seconds = 20;
  const Outcome outcome = run({"export", store(), "--format", "csv"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find(",\"'" + std::string(kTabs, '\t') + "'=1\","), std::string::npos);
}

TEST_F(ExportTest, WhatIsNoCodeHasNoName) {
  import(line({}));
  for (const auto& [value, field] :
       std::vector<std::pair<std::string, std::string>>{{"null", ""},
                                                        {"'=text'", "\"'=text\""},
                                                        {"4294967296", "4294967296"},
                                                        {"-1", "-1"},
                                                        {"0.5", "0.5"}}) {
    plant("update t_message set session_type=" + value + ",direction=" + value +
          ",sent_status=" + value + ",read_status=" + value);
    const std::string csv = output({"export", store(), "--format", "csv"});
    EXPECT_EQ(csv, std::string(kHeadings) + "1," + field +
                       R"(,"room","",2023-11-14 22:13:20,"u01",)" + field +
                       R"(,"CV:TxtMsg","hi",)" + field + "," + field +
                       ",0,1700000000000,0,\"\"\r\n");
  }
}

TEST_F(ExportTest, JsonlHoldsEveryColumnBetweenHeaderAndEnd) {
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

TEST_F(ExportTest, AnExportToAFileTellsWhatItHolds) {
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

TEST_F(ExportTest, ConversationsAreChosenByIdAndKind) {
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

TEST_F(ExportTest, AnIdWithoutAConversationIsAnError) {
  import_sample();
  const std::string why = "; 'corvan list' shows all conversations\n";
  expect_refused({"no'one", "--format", "csv"}, file() + ": no conversation \"no'one\"" + why);
  expect_refused({"u02", "--type", "group", "--format", "html", "--output", folder.file("out")},
                 file() + ": no conversation \"u02\" of these types" + why);
}

TEST_F(ExportTest, MessagesWithoutAConversationAreExported) {
  import_sample();
  plant("delete from t_session where session_id='u02'");
  EXPECT_EQ(lines(output({"export", store(), "--format", "jsonl"})).size(), 12U);
  const std::string csv = output({"export", store(), "--format", "csv"});
  EXPECT_NE(csv.find("\r\n5,private,\"u02\",\"\","), std::string::npos) << csv;
  EXPECT_EQ(
      output({"export", store(), "u02", "--format", "csv"}).find(std::string(kHeadings) + "5,"),
      0U);
}

TEST_F(ExportTest, TheStoreStaysAsItIs) {
  import_sample();
  plant("update t_message set sent_status=1");
  const Listing before = listing(store());
  output({"export", store(), "--format", "jsonl"});
  output({"export", store(), "--format", "html", "--output", folder.file("out")});
  EXPECT_EQ(listing(store()), before);
}

// What an index lacks is in the table: JSON Lines have it, and nothing else is taken for whole.
TEST_F(ExportTest, RowsThatAnIndexLacksAreNotLost) {
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

TEST_F(ExportTest, WhatIsThereIsNeverReplaced) {
  import_sample();
  const std::string place = write("out", "mine");
  expect_refused({"--format", "csv", "--output", place},
                 place + ": is there already; name a place where nothing is\n");
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

TEST_F(ExportTest, AMissingColumnIsNamed) {
  import_sample();
  plant("alter table t_session rename column draft to draft_message");
  expect_refused({"--format", "jsonl"},
                 file() +
                     ": table t_session has no column \"draft\"; only a store with the "
                     "columns of this release can be exported\n");
}

TEST_F(ExportTest, WhatIsNoPartOfAStoreIsNamed) {
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
                             ": left out, since it is no part of a message store: table notes, "
                             "table sqlite_stat1, index by_sender, index t_message_sent_time as "
                             "it is in this file, column t_sync.sum, column t_session.colour, "
                             "application_id\n");
  EXPECT_EQ(outcome.out.find("colour"), std::string::npos);
}

TEST_F(ExportTest, RowsThatARestoreMayRefuseAreWarnedOf) {
  import_sample();
  plant(
      "create table other as select * from t_session;drop table t_session;"
      "alter table other rename to t_session");
  const Outcome outcome = run({"export", store(), "room", "--format", "jsonl"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err.find("corvan: " + file() +
                             ": 'corvan restore' may refuse rows, since they are in tables unlike "
                             "a new store's: t_session has no column draft text default '', "),
            0U)
      << outcome.err;
  const std::string end = "t_session has no key session_id,session_type; see 'corvan verify'\n";
  EXPECT_EQ(outcome.err.substr(outcome.err.size() - end.size()), end);
}

TEST_F(ExportTest, AFullDiskLeavesNothing) {
  import_many(2000);
  // Escaped, a text takes more room than in the store: the store's copy still finds room.
  plant("update t_message set content=replace(hex(zeroblob(100)),'0','\"<')");
  largest_file = static_cast<rlim_t>(std::filesystem::file_size(file()));
  for (const std::string format : {"jsonl", "csv", "html"}) {
    const Outcome outcome =
        run({"export", store(), "--format", format, "--output", folder.file("out")});
    EXPECT_EQ(outcome.status, 2) << format;
    EXPECT_EQ(outcome.out, "") << format;
    EXPECT_EQ(names_like("out"), Rows{}) << format;
  }
}

TEST_F(ExportTest, AnInterruptLeavesNothing) {
  import_many(4000);
  for (const std::string format : {"jsonl", "csv", "html"}) {
    int status = 0;
    // It may be done before the signal comes.
    for (int attempt = 0; attempt < 50 && status == 0; ++attempt) {
      std::filesystem::remove_all(folder.file("out"));
      const pid_t pid =
          start({"export", store(), "--format", format, "--output", folder.file("out")}, null());
      EXPECT_TRUE(wait_for_unfinished("out")) << format;
      kill(pid, SIGTERM);
      status = wait(pid);
    }
    EXPECT_EQ(status, -SIGTERM) << format;
    EXPECT_EQ(names_like("out"), Rows{}) << format;
    EXPECT_EQ(listing(copies()), Listing{}) << format;
  }
}

TEST_F(ExportTest, AFullStandardOutputIsAnError) {
  import_sample();
  for (const std::string format : {"jsonl", "csv"}) {
    EXPECT_EQ(wait(start({"export", store(), "--format", format}, full())), 2);
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written: No space left on device\n");
  }
}

// Over ten times the messages take hardly more memory.
TEST_F(ExportTest, MemoryDoesNotGrowWithTheStore) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the address checker keeps what was freed, and memory of its own";
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
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_maxrss / 1024;  // MiB
  };
  import_many(80);
  plant("update t_message set content=hex(zeroblob(4000))");
  const long small = run_all();
  plant(
      "with n(i) as (select 1 union all select i+1 from n where i<1000) "
      "insert into t_message(session_id,session_type,content,sent_time) "
      "select 'room',2,hex(zeroblob(4000)),1700000000000+i from n");
  EXPECT_GT(std::filesystem::file_size(file()), 7U << 20);
  EXPECT_LT(run_all(), small + 5);
}

}  // namespace
}  // namespace corvan_test
