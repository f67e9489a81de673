// A store whose indexes are changed. The expected indexes are read from a new store: the tests do
// not depend on which they are.

#ifndef TESTS_TOOLS_INDEX_SAMPLE_H_
#define TESTS_TOOLS_INDEX_SAMPLE_H_

#include <algorithm>
#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

inline constexpr const char* kIndexSchema =
    "select type,name,tbl_name,sql from sqlite_master where name not like 'sqlite_%' "
    "order by type,name";

inline constexpr const char* kIndexContent =
    "select * from t_message;select * from t_session;select * from t_sync;"
    "select * from t_version;select * from sqlite_sequence;pragma user_version";

struct StoredIndex {
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
      StoredIndex index;
      index.name = name;
      index.table = rows("select tbl_name from sqlite_master where name='" + name + "'").at(0);
      index.sql = rows("select sql from sqlite_master where name='" + name + "'").at(0);
      indexes.push_back(index);
    }
    ASSERT_FALSE(indexes.empty());
    content = rows(kIndexContent);
  }

  Rows schema() const { return rows(kIndexSchema); }
  Rows names() const {
    return rows("select name from sqlite_master where type='index' and sql is not null order by 1");
  }

  // Every test must leave a sound store with the same rows.
  void TearDown() override {
    if (readable_at_end) {
      EXPECT_EQ(rows(kIndexContent), content);
      EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
    }
    ToolTest::TearDown();
  }

  void expect_new() const { EXPECT_EQ(schema(), new_schema_); }

  void drop_all() const {
    for (const StoredIndex& index : indexes) plant("drop index " + index.name);
  }

  Json bring_up(const Arguments& more = {}) {
    Arguments arguments = {"index", store(), "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return json(arguments);
  }

  // Expects this error, and no change, with each of these lists of options.
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

  // Statements that create an index with the same name and another definition.
  Rows other_definitions(const StoredIndex& index) const {
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

  std::vector<StoredIndex> indexes;  // of a new store
  Rows content;                      // of the store, at the beginning and the end
  bool readable_at_end = true;

 private:
  Rows new_schema_;
};

inline Rows names_in(const Json& list) {
  Rows result;
  for (const Json& entry : list) result.push_back(entry["name"]);
  return result;
}

}  // namespace corvan_test

#endif  // TESTS_TOOLS_INDEX_SAMPLE_H_
