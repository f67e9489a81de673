#include "tools/store/new_store.h"

#include <sqlite3.h>

#include "base/cv_database.h"
#include "tools/store/connection.h"
#include "tools/ui/error.h"
#include "tools/ui/letter_case.h"

namespace corvan_tool {

namespace {

// The schema of a new store in a database in memory.
class NewStoreSchema {
 public:
  // Throws ToolError if this SQLite cannot create it.
  NewStoreSchema() : connection_(":memory:") {
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
      require(connection_.run(sql));
    }
  }

  Schema schema() const {
    Schema schema;
    require(read_schema(connection_, schema));
    for (Table& table : schema.tables) require(read_parts(connection_, table));
    return schema;
  }

  std::vector<TableLayout> layout() const {
    std::vector<TableLayout> tables;
    each_row("select name,sql from sqlite_master where type='table' and name not like 'sqlite_%'",
             [&tables](const Row& row) {
               tables.push_back({row.text(0), row.text(1), {}, {}});
             });
    for (TableLayout& table : tables) {
      read_columns(table);
      read_indexes(table);
    }
    return tables;
  }

 private:
  void require(int rc) const {
    if (rc != SQLITE_DONE) throw ToolError("a new store's schema: " + connection_.error());
  }

  template <typename Read, typename... Arguments>
  void each_row(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    require(connection_.each_row(sql, read, arguments...));
  }

  void read_columns(TableLayout& table) const {
    each_row(
        "select name,type,pk from pragma_table_info(?)",
        [&table](const Row& row) {
          const std::string type = lower_case(row.text(1));
          table.columns.push_back({row.text(0), type, type == "integer" && row.int32(2) != 0});
        },
        table.name);
  }

  void read_indexes(TableLayout& table) const {
    each_row(
        "select l.name,l.partial,m.sql from pragma_index_list(?) l join sqlite_master m "
        "on m.type='index' and m.name=l.name",
        [&table](const Row& row) {
          table.indexes.push_back({row.text(0), row.text(2), {}, row.int32(1) == 0});
        },
        table.name);
    for (IndexLayout& index : table.indexes) {
      each_row(
          "select name from pragma_index_info(?) order by seqno",
          [&index](const Row& row) { index.columns.push_back(row.text(0)); }, index.name);
    }
  }

  const Connection connection_;
};

}  // namespace

Schema new_schema() {
  return NewStoreSchema().schema();
}

std::vector<TableLayout> new_store_layout() {
  return NewStoreSchema().layout();
}

}  // namespace corvan_tool
