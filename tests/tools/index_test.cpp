#include <cctype>
#include <cstddef>
#include <string>

#include "tests/tools/index_sample.h"

namespace corvan_test {
namespace {

TEST_F(IndexTest, ChangesNothingInANewStore) {
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

// The tool recognises the indexes of older releases by their names, and leaves others alone.
TEST_F(IndexTest, EachIndexOfTheStoreIsNamedAfterItsTable) {
  for (const StoredIndex& index : indexes) {
    EXPECT_EQ(index.name.rfind(index.table + "_", 0), 0U) << index.name;
  }
}

TEST_F(IndexTest, CreatesEachMissingIndex) {
  for (const StoredIndex& index : indexes) {
    plant("drop index " + index.name);
    const Json result = bring_up();
    EXPECT_EQ(names_in(result["created"]), Rows{index.name});
    EXPECT_EQ(result["kept"], indexes.size() - 1);
    expect_new();
  }
}

TEST_F(IndexTest, CreatesAllIndexes) {
  drop_all();
  const std::string text = output({"index", store()});
  for (const StoredIndex& index : indexes) {
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

TEST_F(IndexTest, ReplacesAnIndexWithAnotherDefinition) {
  // One row per table, so that any index may be unique.
  plant("delete from t_message where id>1;delete from t_session where session_id<>'room'");
  content = rows(kIndexContent);
  for (const StoredIndex& index : indexes) {
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

TEST_F(IndexTest, ReplacesAnIndexOfAnotherTableWithTheName) {
  const StoredIndex& index = indexes[0];
  plant("drop index " + index.name + ";create index " + index.name +
        " on t_version(database_version)");
  EXPECT_EQ(names_in(bring_up()["replaced"]), Rows{index.name});
  expect_new();
}

TEST_F(IndexTest, KeepsAnIndexWithAnEquivalentStatement) {
  int written = 0;
  for (const StoredIndex& index : indexes) {
    if (index.sql.find_first_of("'\"`[") != std::string::npos)
      continue;  // quoted text must not change
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

TEST_F(IndexTest, DropsAnIndexOfAnOlderRelease) {
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

TEST_F(IndexTest, ReportsAndLeavesAForeignIndex) {
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

TEST_F(IndexTest, DropsIndexesWhoseNamesNeedQuotes) {
  plant(
      "create index \"t_message_\"\" ; drop\" on t_message(sender);create index \"a b\" on t_sync(user_id)");
  EXPECT_EQ(names_in(bring_up({"--drop-others"})["dropped"]), (Rows{"a b", "t_message_\" ; drop"}));
  expect_new();
}

TEST_F(IndexTest, LeavesOtherTablesAlone) {
  plant("create table t_message_notes(x);create index t_message_notes_x on t_message_notes(x)");
  const Listing before = listing(store());
  EXPECT_EQ(bring_up({"--drop-others"})["dropped"], Json::array());
  EXPECT_EQ(listing(store()), before);
}

TEST_F(IndexTest, BringsAnOlderStoreUpToDate) {
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

// Older stores have this index.
TEST_F(IndexTest, ReplacesTheIndexByConversationAndClientUid) {
  const std::string name = "t_message_client_uid";
  plant("drop index " + name + ";create index " + name +
        " on t_message(session_id,session_type,client_uid,sender)");
  const Json result = bring_up();
  EXPECT_EQ(names_in(result["replaced"]), Rows{name});
  EXPECT_EQ(result["kept"], indexes.size() - 1);
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

TEST_F(IndexTest, ReportsTheSizeOfNewIndexes) {
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

TEST_F(IndexTest, DryRunReportsEveryChangeAndMakesNone) {
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

}  // namespace
}  // namespace corvan_test
