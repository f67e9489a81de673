// The set of indexes is taken from a new store, and older stores are made from it: what the set
// holds does not matter here.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"
#include "tools/store/library_store.h"
#include "tools/store/schema.h"

namespace corvan_test {
namespace {

constexpr const char* kSchema =
    "select type,name,tbl_name,sql from sqlite_master where name not like 'sqlite_%' "
    "order by type,name";
constexpr const char* kContent =
    "select * from t_message;select * from t_session;select * from t_sync;"
    "select * from t_version;select * from sqlite_sequence;pragma user_version";

constexpr const char* kInUse =
    ": in use by another process (database is locked); nothing was changed; try again while the "
    "client rests\n";

struct Index {
  std::string name;
  std::string table;
  std::string sql;
};

class IndexTest : public ToolTest {
 protected:
  void SetUp() override {
    import(line({{"content", "first"},
                 {"server_uid", "s1"},
                 { "is_mention",
                   true }}) +
           line({{"content", "你好"},
                 {"server_uid", "s2"},
                 { "sent_time",
                   1700000001000 }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 { "server_uid",
                   "s3" }}) +
           line({{"sender", "me"}, {"is_receive", false}, {"client_uid", 9}, {
                   "sent_status",
                   1
                 }}));
    new_schema_ = schema();
    for (const std::string& name : names()) {
      Index index;
      index.name = name;
      index.table = rows("select tbl_name from sqlite_master where name='" + name + "'").at(0);
      index.sql = rows("select sql from sqlite_master where name='" + name + "'").at(0);
      indexes.push_back(index);
    }
    ASSERT_FALSE(indexes.empty());
    content = rows(kContent);
  }

  Rows schema() const { return rows(kSchema); }
  Rows names() const {
    return rows("select name from sqlite_master where type='index' and sql is not null order by 1");
  }

  // What a test leaves in any case: a sound store with the rows that it had.
  void TearDown() override {
    if (readable_at_end) {
      EXPECT_EQ(rows(kContent), content);
      EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
    }
    ToolTest::TearDown();
  }

  void expect_new() const { EXPECT_EQ(schema(), new_schema_); }

  void drop_all() const {
    for (const Index& index : indexes) plant("drop index " + index.name);
  }

  Json bring_up(const Arguments& more = {}) {
    Arguments arguments = {"index", store(), "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return json(arguments);
  }

  // Runs the command with each of these options and expects this one line of error and no change.
  void expect_refused(const std::string& error,
                      const std::vector<Arguments>& with = {{}, {"--dry-run"}, {"--json"}}) {
    const Listing before = listing(store());
    for (const Arguments& more : with) {
      Arguments arguments = {"index", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.err, "corvan: " + file() + ": " + error + "\n");
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(listing(store()), before);
    }
  }

  // Statements that make an index of the same name and another meaning.
  Rows other_definitions(const Index& index) const {
    const bool partial = index.sql.find(" where ") != std::string::npos;
    const std::string kind =
        index.sql.rfind("CREATE UNIQUE ", 0) == 0 ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
    const std::string other_kind =
        kind == "CREATE INDEX " ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
    Rows all = {other_kind + index.sql.substr(kind.size()),
                index.sql + (partial ? " and 1" : " where 1")};

    const Rows columns = rows("select name from pragma_index_info('" + index.name + "')");
    if (std::find(columns.begin(), columns.end(), "NULL") != columns.end()) return all;
    const std::string condition = partial ? index.sql.substr(index.sql.find(" where ")) : "";
    const auto add = [&](const Rows& of, const std::string& end) {
      std::string list;
      for (const std::string& column : of) list += (list.empty() ? "" : ",") + column;
      all.push_back(kind + index.name + " on " + index.table + "(" + list + ")" + end);
    };
    const bool descends =
        rows("select \"desc\" from pragma_index_xinfo('" + index.name + "')")[0] == "1";
    Rows turned = columns;
    turned[0] += descends ? " asc" : " desc";
    add(turned, condition);
    Rows longer = columns;
    longer.push_back(rows("select name from pragma_table_info('" + index.table +
                          "') where name not in(select name from pragma_index_info('" + index.name +
                          "'))")
                         .at(0));
    add(longer, condition);
    if (columns.size() > 1) {
      add({columns.begin(), columns.end() - 1}, condition);
      add({columns.rbegin(), columns.rend()}, condition);
    }
    if (partial) add(columns, "");
    return all;
  }

  std::vector<Index> indexes;  // of a new store
  Rows content;                // of the store, to be there at the end
  bool readable_at_end = true;

 private:
  Rows new_schema_;
};

Rows names_in(const Json& list) {
  Rows result;
  for (const Json& entry : list) result.push_back(entry["name"]);
  return result;
}

TEST(SameIndexTest, OnlyTheWayOfWritingMayDiffer) {
  const std::string sql = "CREATE INDEX i on t(a,lower(b)) where c<>'A  b' and d>0";
  for (const char* same : {
           "create index i on t(a,lower(b)) where c<>'A  b' and d>0",
           " Create\n Index\ti  ON t ( a , LOWER( b ) )where  C<>'A  b'\r\nAND d>0 ",
       }) {
    EXPECT_TRUE(corvan_tool::is_same_statement(sql, same)) << same;
  }
  for (const char* other : {
           "CREATE UNIQUE INDEX i on t(a,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(lower(b),a) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a desc,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a,lower(b))",
           "CREATE INDEX i on u(a,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'a  b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'A b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'A  b'and d>00",
       }) {
    EXPECT_FALSE(corvan_tool::is_same_statement(sql, other)) << other;
  }
}

TEST(SameIndexTest, QuotesAreHonoured) {
  const std::vector<std::pair<std::string, std::string>> others = {
      {"on t(\"A\")", "on t(\"a\")"},
      {"on t(`a  b`)", "on t(`a b`)"},
      {"on t([a ,b])", "on t([a,b])"},
      {"on t(a) where b='it''s  A'", "on t(a) where b='it''s  a'"},
      {"on t(a) where b='(' and c='A'", "on t(a) where b='(' and c='a'"},
      {"on t(a) where b='\"' and c='A'", "on t(a) where b='\"' and c='a'"},
  };
  for (const auto& [one, other] : others) {
    EXPECT_FALSE(corvan_tool::is_same_statement(one, other)) << one;
    EXPECT_TRUE(corvan_tool::is_same_statement("CREATE  INDEX i " + one, "create index i " + one));
  }
  EXPECT_TRUE(
      corvan_tool::is_same_statement("t(a) where b='x' and C>0", "t(a) WHERE b='x' and c>0"));
}

TEST(SameIndexTest, StatementsWithCommentsAreTheSameOnlyWhenEqual) {
  for (const char* sql : {"on t(a) -- of b\n where c>0", "on t(a) /* of B */"}) {
    EXPECT_TRUE(corvan_tool::is_same_statement(sql, sql));
  }
  EXPECT_FALSE(corvan_tool::is_same_statement("t(a) -- b\n where c>0", "t(a) -- b where c>0"));
  EXPECT_FALSE(corvan_tool::is_same_statement("t(a) /* b */", "t(a) /* B */"));
}

TEST_F(IndexTest, NothingIsToDoInANewStore) {
  const Listing before = listing(store());
  const std::string text = output({"index", store()});
  EXPECT_EQ(text.find("nothing to do: " + std::to_string(indexes.size()) + " kept; "), 0U) << text;
  const Json result = bring_up();
  EXPECT_EQ(result["kept"], indexes.size());
  for (const char* list : {"created", "replaced", "dropped", "left"}) {
    EXPECT_EQ(result[list], Json::array()) << list;
  }
  EXPECT_EQ(listing(store()), before);
}

// An older set's indexes are told by their names from those that somebody added.
TEST_F(IndexTest, EachIndexOfTheStoreIsNamedAfterItsTable) {
  for (const Index& index : indexes) {
    EXPECT_EQ(index.name.rfind(index.table + "_", 0), 0U) << index.name;
  }
}

TEST_F(IndexTest, EachMissingIndexIsCreated) {
  for (const Index& index : indexes) {
    plant("drop index " + index.name);
    const Json result = bring_up();
    EXPECT_EQ(names_in(result["created"]), Rows{index.name});
    EXPECT_EQ(result["kept"], indexes.size() - 1);
    expect_new();
  }
}

TEST_F(IndexTest, AStoreWithoutIndexesGetsThemAll) {
  drop_all();
  const std::string text = output({"index", store()});
  for (const Index& index : indexes) {
    EXPECT_NE(text.find("created  " + index.name + " "), std::string::npos) << text;
  }
  EXPECT_NE(text.find("\n" + std::to_string(indexes.size()) +
                      " created, 0 replaced, 0 dropped, 0 kept; "),
            std::string::npos)
      << text;
  expect_new();
  EXPECT_EQ(listing(store()).size(), 1U) << "the log is folded in at the end";
  EXPECT_EQ(output({"index", store()}).find("nothing to do: "), 0U);
}

TEST_F(IndexTest, AnIndexOfAnotherMeaningIsReplaced) {
  // One row a table, so that any index may be unique.
  plant("delete from t_message where id>1;delete from t_session where session_id<>'room'");
  content = rows(kContent);
  for (const Index& index : indexes) {
    for (const std::string& other : other_definitions(index)) {
      plant("drop index " + index.name + ";" + other);
      const std::string old_sql =
          rows("select sql from sqlite_master where name='" + index.name + "'").at(0);
      ASSERT_NE(old_sql, index.sql);
      const Json result = bring_up();
      ASSERT_EQ(names_in(result["replaced"]), Rows{index.name}) << other;
      EXPECT_EQ(result["replaced"][0]["sql"], index.sql);
      EXPECT_EQ(result["replaced"][0]["old_sql"], old_sql);
      EXPECT_EQ(result["created"], Json::array());
      EXPECT_EQ(result["kept"], indexes.size() - 1);
      expect_new();
    }
  }
}

TEST_F(IndexTest, AnIndexOfAnotherTableUnderTheNameIsReplaced) {
  const Index& index = indexes[0];
  plant("drop index " + index.name + ";create index " + index.name +
        " on t_version(database_version)");
  EXPECT_EQ(names_in(bring_up()["replaced"]), Rows{index.name});
  expect_new();
}

TEST_F(IndexTest, AnIndexThatIsOnlyWrittenInAnotherWayIsKept) {
  int written = 0;
  for (const Index& index : indexes) {
    if (index.sql.find_first_of("'\"`[") != std::string::npos) continue;  // not to be touched
    std::string sql;
    for (const char c : index.sql) {
      sql += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      if (c == ' ' || c == ',' || c == '(') sql += "\n\t ";
    }
    plant("drop index " + index.name + ";" + sql);
    ++written;
  }
  ASSERT_GT(written, 0);
  const Listing before = listing(store());
  EXPECT_EQ(bring_up()["kept"], indexes.size());
  EXPECT_EQ(listing(store()), before);
}

TEST_F(IndexTest, AnOlderIndexIsDropped) {
  plant(
      "create index t_message_older on t_message(sender,content);"
      "create unique index t_session_older on t_session(session_id) where session_type=9");
  const Json result = bring_up();
  EXPECT_EQ(names_in(result["dropped"]), (Rows{"t_message_older", "t_session_older"}));
  EXPECT_EQ(result["dropped"][0]["table"], "t_message");
  EXPECT_EQ(result["dropped"][0]["sql"],
            "CREATE INDEX t_message_older on t_message(sender,content)");
  EXPECT_EQ(result["left"], Json::array());
  expect_new();
}

TEST_F(IndexTest, AnIndexThatSomebodyAddedIsNamedAndLeft) {
  const std::string sql = "CREATE INDEX by_sender on t_message(sender)";
  plant(sql + ";drop index " + indexes[0].name);
  const std::string text = output({"index", store()});
  EXPECT_NE(text.find("\nleft     by_sender "), std::string::npos) << text;
  EXPECT_NE(text.find(sql + "\n"), std::string::npos) << text;
  EXPECT_NE(text.find("1 left (--drop-others"), std::string::npos) << text;
  const Listing before = listing(store());
  const Json again = bring_up();
  EXPECT_EQ(names_in(again["left"]), Rows{"by_sender"});
  EXPECT_EQ(output({"index", store()}).find("DONE"), 0U) << "it is named each time";
  EXPECT_EQ(listing(store()), before);

  EXPECT_EQ(names_in(bring_up({"--drop-others"})["dropped"]), Rows{"by_sender"});
  expect_new();
}

TEST_F(IndexTest, NamesThatNeedQuotesAreDropped) {
  plant(
      "create index \"t_message_\"\" ; drop\" on t_message(sender);create index \"a b\" on t_sync(user_id)");
  EXPECT_EQ(names_in(bring_up({"--drop-others"})["dropped"]), (Rows{"a b", "t_message_\" ; drop"}));
  expect_new();
}

TEST_F(IndexTest, OtherTablesAreLeftAlone) {
  plant("create table t_message_notes(x);create index t_message_notes_x on t_message_notes(x)");
  const Listing before = listing(store());
  EXPECT_EQ(bring_up({"--drop-others"})["dropped"], Json::array());
  EXPECT_EQ(listing(store()), before);
}

TEST_F(IndexTest, AnOlderStoreBecomesEqualToANewOne) {
  drop_all();
  plant("create index t_message_older on t_message(sender);create index " + indexes.back().name +
        " on t_message(content,sender)");
  const Json result = bring_up();
  EXPECT_EQ(result["created"].size(), indexes.size() - 1);
  EXPECT_EQ(names_in(result["replaced"]), Rows{indexes.back().name});
  EXPECT_EQ(names_in(result["dropped"]), Rows{"t_message_older"});
  EXPECT_EQ(result["kept"], 0);
  expect_new();
}

TEST_F(IndexTest, JsonHasTheDocumentedKeys) {
  drop_all();
  plant(
      "create index by_sender on t_message(sender);create index t_message_older on "
      "t_message(sender);create index " +
      indexes[0].name + " on t_sync(sent_time)");
  const Json result = bring_up();
  EXPECT_EQ(keys(result),
            (Rows{"dry_run", "created", "replaced", "dropped", "left", "kept", "seconds"}));
  EXPECT_EQ(result["dry_run"], false);
  EXPECT_GE(result["seconds"].get<double>(), 0.0);
  ASSERT_EQ(result["created"].size(), indexes.size() - 1);
  EXPECT_EQ(keys(result["created"][0]), (Rows{"name", "table", "sql", "seconds", "bytes"}));
  EXPECT_EQ(keys(result["replaced"].at(0)),
            (Rows{"name", "table", "sql", "old_sql", "seconds", "bytes"}));
  EXPECT_EQ(keys(result["dropped"].at(0)), (Rows{"name", "table", "sql"}));
  EXPECT_EQ(keys(result["left"].at(0)), (Rows{"name", "table", "sql"}));
  EXPECT_EQ(result["left"][0]["table"], "t_message");
  for (std::size_t i = 1; i < indexes.size(); ++i) {
    const Json& entry = result["created"][i - 1];
    EXPECT_EQ(entry["name"], indexes[i].name);
    EXPECT_EQ(entry["table"], indexes[i].table);
    EXPECT_EQ(entry["sql"], indexes[i].sql);
    EXPECT_GE(entry["seconds"].get<double>(), 0.0);
  }
  bring_up({"--drop-others"});
}

TEST_F(IndexTest, TellsTheSizeOfWhatItMade) {
  drop_all();
  const Json result = bring_up();
  const bool known = !rows("select 1 from pragma_module_list where name='dbstat'").empty();
  for (const Json& entry : result["created"]) {
    if (known) {
      const std::string name = entry["name"];
      EXPECT_EQ(Rows{entry["bytes"].dump()},
                rows("select sum(pgsize) from dbstat where name='" + name + "'"));
    } else {
      EXPECT_TRUE(entry["bytes"].is_null());
    }
  }
}

TEST_F(IndexTest, ADryRunTellsAllAndChangesNothing) {
  plant("drop index " + indexes.back().name +
        ";create index t_message_older on t_message(sender);"
        "create index by_sender on t_message(sender)");
  const Listing before = listing(store());
  const std::string text = output({"index", store(), "--dry-run"});
  EXPECT_EQ(text.find("WOULD BE  INDEX"), 0U) << text;
  EXPECT_NE(text.find("\ncreated   " + indexes.back().name + " "), std::string::npos) << text;
  EXPECT_NE(text.find("\ndropped   t_message_older "), std::string::npos) << text;
  EXPECT_NE(text.find("\nleft      by_sender "), std::string::npos) << text;
  EXPECT_NE(text.find("\nwould be: 1 created, 0 replaced, 1 dropped, "), std::string::npos) << text;
  const Json result = bring_up({"--dry-run"});
  EXPECT_EQ(result["dry_run"], true);
  EXPECT_EQ(names_in(result["created"]), Rows{indexes.back().name});
  EXPECT_EQ(names_in(result["dropped"]), Rows{"t_message_older"});
  EXPECT_EQ(names_in(result["left"]), Rows{"by_sender"});
  EXPECT_EQ(bring_up({"--dry-run", "--drop-others"})["dropped"].size(), 2U);
  EXPECT_EQ(listing(store()), before);
}

TEST_F(IndexTest, ALockedStoreIsAClearErrorAndADryRunWorks) {
  drop_all();
  const Rows before = schema();
  {
    const WriteAhead writer(file(), "begin immediate");
    const Outcome outcome = run({"index", store()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() + kInUse);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(schema(), before);
    EXPECT_EQ(bring_up({"--dry-run"})["created"].size(), indexes.size());
  }
  EXPECT_EQ(schema(), before);
}

TEST_F(IndexTest, AReaderIsNoHindrance) {
  drop_all();
  const WriteAhead reader(file(), "begin;select count(*) from t_message");
  bring_up();
  expect_new();
}

TEST_F(IndexTest, WithoutALogAReaderIsAClearError) {
  drop_all();
  plant("pragma journal_mode=delete");
  const Listing before = listing(store());
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &reader), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(reader, "begin;select count(*) from t_message", nullptr, nullptr, nullptr),
            SQLITE_OK);
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + kInUse);
  sqlite3_close(reader);  // reading the file in this process would take the lock away before
  EXPECT_EQ(listing(store()), before);
  bring_up();
  expect_new();
  EXPECT_EQ(rows("pragma journal_mode"), Rows{"delete"});
}

TEST_F(IndexTest, AClientThatHasTheStoreOpenGoesOn) {
  {
    corvan_tool::OpenStore client(store(), "me");
    drop_all();
    const auto save = [&client](const std::string& uid) {
      return client->save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "u01", "text", true, 0, 0,
                                  false, 0, 0, uid, false, false, true);
    };
    EXPECT_EQ(save("before"), 5);
    EXPECT_EQ(bring_up()["created"].size(), indexes.size());
    EXPECT_TRUE(file_exists(file() + "-wal"));
    EXPECT_EQ(save("before"), -1) << "it is there";
    EXPECT_EQ(save("after"), 6);
    EXPECT_EQ(client.failure(), "");
  }
  expect_new();
  EXPECT_EQ(listing(store()).size(), 1U);
  content = rows(kContent);
}

TEST_F(IndexTest, AStoreWhoseWriterWasKilledIsTakenWithItsLog) {
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  {
    const WriteAhead writer(file(), "create index by_sender on t_message(sender)");
    for (const char* suffix : {"", "-wal"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
  }
  EXPECT_EQ(names_in(json({"index", killed, "--json", "--drop-others"})["dropped"]),
            Rows{"by_sender"});
  EXPECT_EQ(listing(killed).size(), 1U);
  bring_up({"--drop-others"});
}

TEST_F(IndexTest, AMissingColumnIsAClearErrorAndNothingIsCreated) {
  for (const Index& index : indexes) {
    const std::string column = rows("select name from pragma_index_info('" + index.name + "')")[0];
    if (column == "NULL") continue;  // an expression
    drop_all();
    plant("alter table " + index.table + " rename column " + column + " to renamed");
    for (const Arguments& more : std::vector<Arguments>{{}, {"--dry-run"}}) {
      const Listing before = listing(store());
      Arguments arguments = {"index", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.out, "");
      EXPECT_EQ(outcome.err.find("corvan: " + file() + ": index " + index.table + "_"), 0U)
          << outcome.err;
      EXPECT_NE(outcome.err.find(column + "; nothing was changed\n"), std::string::npos)
          << outcome.err;
      EXPECT_EQ(listing(store()), before);
    }
    plant("alter table " + index.table + " rename column renamed to " + column);
    bring_up();
    expect_new();
  }
}

TEST_F(IndexTest, ATableInAnIndexesPlaceIsAClearError) {
  plant("drop index " + indexes[0].name + ";create table " + indexes[0].name + "(x)");
  expect_refused("index " + indexes[0].name + ": there is already a table named " +
                 indexes[0].name + "; nothing was changed");
}

TEST_F(IndexTest, AFullDiskChangesNothing) {
  std::string text;
  for (int i = 0; i < 1500; ++i) {
    text += line({{"session_id", "a conversation of some longer name " + std::to_string(i)},
                  {"server_uid", "a server uid of some length " + std::to_string(i)}});
  }
  import(text);
  content = rows(kContent);
  drop_all();
  plant("create index t_message_older on t_message(sender)");
  const Listing before = listing(store());
  largest_file = rlim_t{64} << 10;
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": "), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find("; nothing was changed\n"), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  EXPECT_EQ(listing(store()), before);
  largest_file = 0;
  bring_up();
  expect_new();
}

TEST_F(IndexTest, AReadOnlyStoreIsAClearError) {
  drop_all();
  make_read_only();
  expect_refused(
      "attempt to write a readonly database; nothing was changed; make the file and its folder "
      "writable",
      {{}, {"--json"}});
  EXPECT_EQ(bring_up({"--dry-run"})["created"].size(), indexes.size());
  make_writable();  // for TearDown()
}

TEST_F(IndexTest, ADamagedPageIsAClearError) {
  const auto index = std::find_if(indexes.begin(), indexes.end(), [](const Index& candidate) {
    return candidate.table == "t_message";
  });
  ASSERT_NE(index, indexes.end());
  plant("drop index " + index->name);
  const std::string root = rows("select rootpage from sqlite_master where name='t_message'").at(0);
  std::string bytes = read_file(file());
  bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
  write_file(file(), bytes);
  readable_at_end = false;
  expect_refused("index " + index->name +
                 ": database disk image is malformed; nothing was changed; see 'corvan check' and "
                 "'corvan salvage'");
}

class IndexWithoutStoreTest : public IndexTest {
 protected:
  void SetUp() override { readable_at_end = false; }
};

TEST_F(IndexWithoutStoreTest, AFileThatIsNoDatabaseIsNotDeleted) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(10000, 'x'));
  expect_refused(
      "damaged (file is not a database); keep a copy: opening it with the library deletes it; "
      "'corvan salvage' brings out what can be read");
}

TEST_F(IndexWithoutStoreTest, AForeignDatabaseIsRefused) {
  std::filesystem::create_directory(store());
  plant("create table t_message(sender);create index t_message_older on t_message(sender)");
  expect_refused("a database, but not a message store");
}

TEST_F(IndexWithoutStoreTest, AnEmptyFileIsRefused) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  expect_refused("an empty file, not a message store");
}

TEST_F(IndexWithoutStoreTest, WhatIsNoFileIsRefused) {
  std::filesystem::create_directories(file());
  expect_refused("not a file");
}

TEST_F(IndexWithoutStoreTest, AMissingStoreIsAnErrorAndIsNotMade) {
  std::filesystem::create_directory(store());
  expect_refused("no store here; name the folder that holds the file \"corvan\"");
  std::filesystem::remove(store());
  const Outcome outcome = run({"index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": no store here; name the folder that holds the file \"corvan\"\n");
  EXPECT_FALSE(file_exists(store()));
}

TEST_F(IndexWithoutStoreTest, HelpIsCompleteAndSucceeds) {
  const std::string text = output({"index", "--help"});
  for (const char* word :
       {"FOLDER", "--json", "--drop-others", "--dry-run", "created", "replaced", "dropped", "left",
        "kept", "seconds", "bytes", "old_sql", "dry_run", "name", "table", "sql"}) {
    EXPECT_NE(text.find(word), std::string::npos) << word;
  }
  EXPECT_NE(output({"--help"}).find("  index "), std::string::npos);
}

TEST_F(IndexWithoutStoreTest, BadUsageIsOneLine) {
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"index"}, "FOLDER"},
      {{"index", ""}, "FOLDER"},
      {{"index", store(), "more"}, "more"},
      {{"index", store(), "--drop"}, "--drop"},
  };
  for (const auto& [arguments, name] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << name;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.find("corvan: "), 0U) << outcome.err;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

}  // namespace
}  // namespace corvan_test
