#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/restore_sample.h"

namespace corvan_test {
namespace {

class RestoreTest : public RestoreSample {};

TEST_F(RestoreTest, RestoredStoreIsIdentical) {
  import_sample();
  import(line({{"sender", "me"}, {"is_receive", false}, {"sent_status", 1}, { "client_uid", 3 }}));
  plant("delete from t_message where id in(2,7)");  // ids are not reused
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

TEST_F(RestoreTest, RestoredEmptyStoreIsIdentical) {
  import_sample();
  plant("delete from t_message;delete from t_session;delete from sqlite_sequence");
  const Outcome outcome = run({"restore", "-", restored()}, exported());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
}

TEST_F(RestoreTest, RestoresEveryKindOfValue) {
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

TEST_F(RestoreTest, EscapingControlCharactersAtMostDoublesTheSize) {
  import(line({}));
  plant("update t_message set content=replace(hex(zeroblob(1000)),'0',char(1))||'\"'");
  const std::string text = exported();
  EXPECT_EQ(lines(text)[3]["content"]["text_hex"].get<std::string>().size(), 4002U);
  EXPECT_EQ(run({"restore", "-", restored()}, text).status, 0);
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
}

TEST_F(RestoreTest, ReportsPartialExport) {
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
  // A new message gets an id that no message of the exported store had.
  EXPECT_EQ(corvan_test::rows(restored_file(), "select seq from sqlite_sequence"), Rows{"6"});
}

TEST_F(RestoreTest, JsonHasNumbersOfRows) {
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

TEST_F(RestoreTest, SkipsBlankLines) {
  import_sample();
  std::string text = " \n\n";
  for (const Json& record : lines(exported())) text += record.dump() + "\n\t\r\n";
  EXPECT_EQ(run({"restore", "-", restored()}, text).status, 0);
  EXPECT_EQ(all_of(restored_file()), all_of(file()));
  std::filesystem::remove_all(restored());
  expect_bad("\n", ": empty, not an export");
  expect_bad(text + "{}", ":29: a line after the record \"end\"");
}

TEST_F(RestoreTest, ReportsUnusablePaths) {
  import_sample();
  const std::string good = write("out.jsonl", exported());
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{folder.file("none"), restored()}, folder.file("none") + ": No such file or directory\n"},
      {{folder.path(), restored()}, folder.path() + ": is a folder; name a file\n"},
      {{good, store()}, store() + ": exists already; name a new place\n"},
      {{good, folder.file("a/b")}, folder.file("a") + ": no such folder; create it first\n"},
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

TEST_F(RestoreTest, ReportsANameThatIsTooLong) {
  const std::string long_name = folder.file(std::string(300, 'n'));
  const Outcome outcome = run({"restore", long_name, restored()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + long_name + ": File name too long\n");
  EXPECT_EQ(names_like("restored"), Rows{});
}

TEST_F(RestoreTest, FullDiskLeavesNothing) {
  import_many(2000);
  const std::string good = write("out.jsonl", exported());
  largest_file = 100 << 10;
  const Outcome outcome = run({"restore", good, restored()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + restored() + ": "), 0U) << outcome.err;
  EXPECT_EQ(names_like("restored"), Rows{});
}

TEST_F(RestoreTest, InterruptLeavesNothing) {
  import_sample();
  const std::string text = exported();
  for (const int interrupt : interrupts()) {
    const Pipe pipe = make_pipe();
    const pid_t pid = start({"restore", "-", restored()}, null_output(), pipe.read_end);
    write_all(pipe.write_end, text.substr(0, text.size() / 2));
    EXPECT_TRUE(wait_for_unfinished("restored"));
    interrupt_process(pid, interrupt);
    EXPECT_EQ(wait(pid), interrupted_status(interrupt));
    close(pipe.write_end);
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
