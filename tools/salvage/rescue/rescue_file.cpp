#include "tools/salvage/rescue/rescue_file.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <cstring>
#include <utility>

#include "tools/ui/error.h"

namespace corvan_tool {

RescueFile::RescueFile(const std::string& path, std::string name)
    : connection_(path), name_(std::move(name)) {}

void RescueFile::fail(const std::string& why) const {
  throw ToolError(name_ + ": " + why +
                  "; nothing was kept; make sure that there is room for the new store and for "
                  "temporary files");
}

void RescueFile::run(const std::string& sql) const {
  if (connection_.run(sql) != SQLITE_DONE) fail(connection_.error());
}

std::int64_t RescueFile::change(const std::string& sql) const {
  run(sql);
  return sqlite3_changes64(connection_.handle());
}

std::int64_t RescueFile::number(const std::string& sql) const {
  return RowStatement(*this, sql).run().value_or(0);
}

std::vector<std::string> RescueFile::texts(const std::string& sql) const {
  std::vector<std::string> result;
  const int rc =
      connection_.each_row(sql, [&result](const Row& row) { result.push_back(row.text(0)); });
  if (rc != SQLITE_DONE) fail(connection_.error());
  return result;
}

RowStatement::RowStatement(const RescueFile& file, const std::string& sql)
    : file_(file), statement_(file.connection(), sql, SQLITE_PREPARE_PERSISTENT) {
  if (statement_.prepared() != SQLITE_OK) file_.fail(file_.connection().error());
}

void RowStatement::bind(int& parameter, const Value& value) {
  double real = 0;
  static_assert(sizeof real == sizeof value.integer);
  ++parameter;
  switch (value.kind) {
    case Value::kNull:
      statement_.bind_null(parameter);
      break;
    case Value::kInteger:
      statement_.bind(parameter, value.integer);
      break;
    case Value::kReal:
      std::memcpy(&real, &value.integer, sizeof real);
      statement_.bind_real(parameter, real);
      break;
    case Value::kText:
      statement_.bind(parameter, value.bytes);
      break;
    case Value::kBlob:
      statement_.bind_blob(parameter, value.bytes);
      break;
  }
}

void RowStatement::bind(int& parameter, const std::vector<Value>& values) {
  for (const Value& value : values) bind(parameter, value);
}

void RowStatement::bind(int& parameter, const std::vector<const Value*>& values) {
  for (const Value* const value : values) bind(parameter, *value);
}

std::optional<std::int64_t> RowStatement::step() {
  std::optional<std::int64_t> result;
  const int rc = statement_.step();
  if (rc == SQLITE_ROW) {
    result = statement_.row().int64(0);
  } else if (rc != SQLITE_DONE) {
    file_.fail(file_.connection().error());
  }
  statement_.reset();
  return result;
}

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
