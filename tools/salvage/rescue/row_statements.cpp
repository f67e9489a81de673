#include "tools/salvage/rescue/row_statements.h"

#include <fmt/format.h>

#include <string>

#include "tools/salvage/rescue/scratch.h"

namespace corvan_tool {

namespace {

std::string insert_sql(const KnownTable& table) {
  return fmt::format("insert or ignore into {}(rowid,{}) values({})", table.name,
                     column_list(table.columns), parameter_list(table.columns.size() + 1));
}

std::string find_key_sql(const KnownTable& table) {
  if (table.unique.empty()) return "select null where 0";
  return fmt::format("select rowid from {} where {}", table.name,
                     column_list(table.unique, "{0} is ?", " and "));
}

std::string find_equal_sql(const KnownTable& table) {
  return fmt::format("select 1 from {} where rowid=? and {}", table.name,
                     column_list(table.columns, "{0} is ?", " and "));
}

std::string add_doubtful_sql(const KnownTable& table) {
  return fmt::format("insert into {} values({})", doubtful_table(table),
                     parameter_list(table.columns.size() + 2));
}

std::string move_to_doubtful_sql(const KnownTable& table) {
  return fmt::format("insert into {} select rowid,?,{} from {} where rowid=?",
                     doubtful_table(table), column_list(table.columns), table.name);
}

}  // namespace

RowStatements::RowStatements(const RescueFile& file, const KnownTable& table)
    : insert(file, insert_sql(table)),
      find_id(file, fmt::format("select rowid from {} where rowid=?", table.name)),
      find_key(file, find_key_sql(table)),
      find_equal(file, find_equal_sql(table)),
      remove(file, fmt::format("delete from {} where rowid=?", table.name)),
      add_doubtful(file, add_doubtful_sql(table)),
      find_doubtful(
          file, fmt::format("select 1 from {} where row_id=? and reason=?", doubtful_table(table))),
      move_to_doubtful(file, move_to_doubtful_sql(table)),
      add_unreached(file,
                    fmt::format("insert or ignore into {} values(?)", unreached_table(table))),
      find_unreached(file, fmt::format("select 1 from {} where row_id=?", unreached_table(table))),
      name(file, fmt::format("insert or ignore into {}(row_id) values(?)", named_table(table))) {}

std::unique_ptr<RowStatement> name_by_index(const RescueFile& file, const KnownTable& table,
                                            const KnownIndex& index) {
  return std::make_unique<RowStatement>(
      file, fmt::format("insert into {}({},row_id) values({}) "
                        "on conflict(row_id) do update set {}",
                        named_table(table), column_list(index.columns),
                        parameter_list(index.columns.size() + 1),
                        column_list(index.columns, "{0}=excluded.{0}")));
}

}  // namespace corvan_tool
