// Imports into stores that another program has altered: with triggers that drop or delete messages,
// or without ids for new messages.

#include <regex>
#include <string>

#include "tests/tools/program.h"

namespace corvan_test {
namespace {

constexpr const char* kNotKept =
    ": the store did not keep it: a trigger in its file drops it, the id of its message is above "
    "2147483647, or t_message is unlike a new store's; see 'corvan verify'";

class ImportIntoAlteredStore : public ToolTest {
 protected:
  // Makes an empty store and changes it.
  void alter(const std::string& sql) {
    import("");
    plant(sql);
  }
  Outcome import_text(const std::string& text, const Arguments& more = {}) {
    Arguments arguments = {"import", store(), "--user", "me", write("log.jsonl", text)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
  std::string place(int number) const {
    return folder.file("log.jsonl") + ":" + std::to_string(number);
  }
  static std::string counts(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find(';'));
  }
  Rows contents() const { return rows("select content from t_message order by id"); }
  Rows sessions() const {
    return rows("select session_id,unread_count,latest_id from t_session order by session_id");
  }
};

// A line with this content, in its own conversation.
std::string word(const std::string& text) {
  return line({{"content", text}, {"session_id", "of " + text}});
}

constexpr const char* kDropSpam =
    "create trigger spam before insert on t_message when new.content like 'spam%' "
    "begin select raise(ignore); end";

TEST_F(ImportIntoAlteredStore, MessageThatATriggerDropsEndsTheImport) {
  alter(kDropSpam);
  const Outcome outcome = import_text(word("a") + word("b") + word("spam") + word("c"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + place(3) + kNotKept + "; nothing was stored from " +
                             place(1) + " on; --skip-bad skips such lines\n");
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), Rows{});
  EXPECT_EQ(sessions(), Rows{});
}

TEST_F(ImportIntoAlteredStore, BatchesBeforeADroppedMessageStay) {
  alter(kDropSpam);
  const Outcome outcome =
      import_text(word("a") + word("b") + word("c") + word("spam"), {"--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(counts(outcome), "2 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"a", "b"}));
}

TEST_F(ImportIntoAlteredStore, SkipBadCountsDroppedMessagesAndLeavesNoTraceOfThem) {
  alter(kDropSpam);
  const Outcome outcome = import_text(word("spam 1") + word("a") + word("spam 2") + word("b") +
                                          line({{"content", "spam 3"}, {"session_id", "of a"}}),
                                      {"--skip-bad"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "corvan: " + place(1) + kNotKept + " (skipped)\n" +  //
                             "corvan: " + place(3) + kNotKept + " (skipped)\n" +
                             "corvan: " + place(5) + kNotKept + " (skipped)\n");
  EXPECT_EQ(counts(outcome), "2 stored, 0 completed, 0 refused, 3 bad");
  EXPECT_EQ(contents(), (Rows{"a", "b"}));
  EXPECT_EQ(sessions(), (Rows{"of a|1|1", "of b|1|2"}));
}

TEST_F(ImportIntoAlteredStore, NoMessageIsStoredIfATriggerDropsThemAll) {
  alter("create trigger void before insert on t_message begin select raise(ignore); end");
  std::string text;
  for (int i = 0; i < 20; ++i) text += word(std::to_string(i));
  const Outcome outcome = import_text(text, {"--skip-bad", "--batch", "7"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 20 bad");
  EXPECT_EQ(sessions(), Rows{});
}

TEST_F(ImportIntoAlteredStore, MessageThatATriggerDeletesIsNotStored) {
  alter(
      "create trigger gone after insert on t_message when new.content='gone' "
      "begin delete from t_message where id=new.id; end");
  const Outcome outcome = import_text(word("a") + word("gone"), {"--skip-bad"});
  EXPECT_EQ(counts(outcome), "1 stored, 0 completed, 0 refused, 1 bad");
  EXPECT_EQ(contents(), Rows{"a"});
}

TEST_F(ImportIntoAlteredStore, MessagesThatATriggerDeletesLaterInTheirBatchAreNotStored) {
  alter(
      "create trigger only_two after insert on t_message "
      "begin delete from t_message where id<=new.id-2; end");
  const Outcome outcome = import_text(word("a") + word("b") + word("c"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.rfind("corvan: " + place(1) + kNotKept, 0), 0U) << outcome.err;
  EXPECT_EQ(contents(), Rows{});
}

// A message of the user without a server uid.
Json own_message() {
  return {{"sender", "me"}, {"is_receive", false}, {"client_uid", 7}};
}
Json own_message_named(const std::string& uid) {
  Json message = own_message();
  message["server_uid"] = uid;
  return message;
}

TEST_F(ImportIntoAlteredStore, CompletionThatATriggerDropsIsNotCounted) {
  import(line(own_message()));
  plant("create trigger kept before update on t_message begin select raise(ignore); end");
  for (const char* uid : {"s7", ""}) {
    const Outcome outcome = import_text(line(own_message_named(uid)), {"--skip-bad"});
    EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 1 bad");
    EXPECT_EQ(rows("select server_uid from t_message"), Rows{""});
  }
}

TEST_F(ImportIntoAlteredStore, CompletionThatATriggerChangesIsCounted) {
  import(line(own_message()));
  plant(
      "create trigger lower after update of server_uid on t_message "
      "begin update t_message set server_uid=lower(server_uid) where id=new.id; end");
  EXPECT_EQ(counts(import_text(line(own_message_named("S7")))),
            "0 stored, 1 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select server_uid from t_message"), Rows{"s7"});
}

// The library updates the row whose id is the lower 32 bits of the message's id.
TEST_F(ImportIntoAlteredStore, MessageWithALargeIdIsNotCountedAsCompleted) {
  import(line(own_message()));
  plant("update t_message set id=4294967301");
  const Outcome outcome = import_text(line(own_message_named("s7")));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.rfind("corvan: " + place(1) + kNotKept, 0), 0U) << outcome.err;
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
}

TEST_F(ImportIntoAlteredStore, RowInsertedByATriggerIsNotADroppedMessage) {
  alter(
      "insert into t_session(session_id,session_type) values('x',1);"
      "insert into t_session(session_id,session_type) values('y',1);"
      "create trigger more after insert on t_session begin "
      "insert into t_message(session_id,session_type,content) "
      "values('more',1,'1'),('more',1,'2'),('more',1,'3'),('more',1,'4'); end");
  plant(kDropSpam);
  const Outcome outcome = import_text(word("spam 1") + word("spam 2"), {"--skip-bad"});
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 2 bad");
  EXPECT_EQ(contents(), Rows{});
}

TEST_F(ImportIntoAlteredStore, TableWithoutARowIdColumnStoresNothing) {
  import("");
  plant(
      "drop table t_message;create table t_message(id integer,session_id text default '',"
      "session_type integer default 0,object_name text default '',content text default '',"
      "sender text default '',direction integer default 0,sent_status integer default 0,"
      "read_status integer default 0,is_mention integer default 0,sent_time integer default 0,"
      "client_uid integer default 0,server_uid text default '')");
  const Outcome outcome = import_text(word("a"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.rfind("corvan: " + place(1) + kNotKept, 0), 0U) << outcome.err;
  EXPECT_EQ(contents(), Rows{});
}

TEST_F(ImportIntoAlteredStore, LoggingTriggersDropNothing) {
  alter(
      "create trigger shout after insert on t_message "
      "begin update t_message set content=upper(content) where id=new.id; end");
  const Outcome outcome = import_text(word("a") + word("b"));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(counts(outcome), "2 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"A", "B"}));
}

constexpr const char* kNoIdLeft =
    "no id is left for a new message: 9223372036854775807 is the largest one";

TEST_F(ImportIntoAlteredStore, LargestIdIsNamedWhenSqliteReportsAFullDisk) {
  alter("insert into t_message(id,session_id,session_type) values(9223372036854775807,'x',1)");
  const Outcome outcome = import_text(word("a"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(kNoIdLeft), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("; nothing was stored from " + place(1)), std::string::npos)
      << outcome.err;
  EXPECT_EQ(outcome.err.find("full"), std::string::npos) << outcome.err;
}

TEST_F(ImportIntoAlteredStore, LargestIdIsNamedWhenOnlyTheSequenceHasReachedIt) {
  alter("insert into sqlite_sequence(name,seq) values('t_message',9223372036854775807)");
  const Outcome outcome = import_text(word("a"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(kNoIdLeft), std::string::npos) << outcome.err;
}

TEST_F(ImportIntoAlteredStore, LargestIdIsNamedWhenItIsReachedWithinABatch) {
  alter("insert into sqlite_sequence(name,seq) values('t_message',9223372036854775806)");
  const Outcome outcome = import_text(word("a") + word("b"));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(kNoIdLeft), std::string::npos) << outcome.err;
  EXPECT_EQ(contents(), Rows{});
}

// Follows the advice in the error.
TEST_F(ImportIntoAlteredStore, StoreRestoredWithSmallerIdsAcceptsMessagesAgain) {
  alter("insert into sqlite_sequence(name,seq) values('t_message',9223372036854775806)");
  import(word("a"));
  ASSERT_EQ(rows("select latest_id from t_session"), Rows{"9223372036854775807"});
  const std::string exported = folder.file("export.jsonl");
  ASSERT_EQ(run({"export", store(), "--format", "jsonl", "--output", exported}).status, 0);
  const std::string smaller = std::regex_replace(
      read_file(exported), std::regex("(\"(id|latest_id|seq)\": *)9223372036854775807"), "$011");
  const std::string restored = folder.file("restored");
  const Outcome outcome = run({"restore", write("smaller.jsonl", smaller), restored});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  ASSERT_EQ(run({"import", restored, "--user", "me", write("log.jsonl", word("b"))}).status, 0);
  EXPECT_EQ(corvan_test::rows(restored + "/corvan", "select id,content from t_message order by id"),
            (Rows{"1|a", "2|b"}));
  EXPECT_EQ(run({"verify", restored}).status, 0);
}

}  // namespace
}  // namespace corvan_test
