#include "tools/salvage/rescue/scratch.h"

#include <fmt/format.h>

namespace corvan_tool {

std::string doubtful_table(const KnownTable& table) {
  return "scratch.doubtful_" + table.name;
}

std::string named_table(const KnownTable& table) {
  return "scratch.named_" + table.name;
}

std::string unreached_table(const KnownTable& table) {
  return "scratch.unreached_" + table.name;
}

void create_scratch(const RescueFile& file, const KnownSchema& schema) {
  file.run("attach '' as scratch");
  for (std::size_t i = 0; i < schema.sequences; ++i) {
    const KnownTable& table = schema.tables[i];
    const std::string columns = column_list(table.columns);
    file.run(fmt::format("create table {}(row_id,reason,{})", doubtful_table(table), columns));
    file.run(fmt::format("create index {}_id on doubtful_{}(row_id,reason)", doubtful_table(table),
                         table.name));
    file.run("create table " + unreached_table(table) + "(row_id integer primary key)");
    file.run(fmt::format("create table {}(row_id integer primary key{})", named_table(table),
                         i == schema.messages ? "" : "," + columns));
  }
}

std::string column_list(const std::vector<std::string>& columns, const std::string& format,
                        const std::string& separator) {
  std::vector<std::string> items;
  items.reserve(columns.size());
  for (const std::string& column : columns) {
    items.push_back(fmt::format(fmt::runtime(format), column));
  }
  return fmt::format("{}", fmt::join(items, separator));
}

std::string parameter_list(std::size_t count) {
  return fmt::format("{}", fmt::join(std::vector<char>(count, '?'), ","));
}

}  // namespace corvan_tool
