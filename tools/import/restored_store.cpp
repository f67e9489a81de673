#include "tools/import/restored_store.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

#include "base/cv_database.h"
#include "tools/import/json_line.h"
#include "tools/import/record_value.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Appended to errors whose cause is in the exported store.
constexpr const char* kSeeSource = "; run 'corvan verify' on the exported store";

std::string insert_statement(const ExportTable& table) {
  const std::vector<const char*> places(table.columns.size(), "?");
  return fmt::format("insert into {}({}) values({})", table.name, column_list(table),
                     fmt::join(places, ","));
}

}  // namespace

RestoredStore::RestoredStore(const std::string& file, std::string name, int64_t user_version)
    : connection_(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), name_(std::move(name)) {
  require(connection_.run("pragma page_size=4096"));
  // No journal: after a failure the whole file is removed.
  require(connection_.run("pragma journal_mode=off"));
  require(connection_.run("begin exclusive"));
  run_schema("create table");
  require(connection_.run(fmt::format("pragma user_version={}", user_version)));
}

void RestoredStore::insert(std::size_t table, const Record& record) {
  if (table != prepared_) prepare(table);
  const ExportTable& wanted = export_tables()[table];
  const bool needs_check = bind(wanted, record);
  step();
  if (needs_check) check_types(wanted, record);
}

void RestoredStore::clear_sequence() {
  require(connection_.run("delete from sqlite_sequence"));
}

void RestoredStore::finish() {
  insert_.reset();
  run_schema("create index");
  require(connection_.run("commit"));
  require(connection_.run("pragma journal_mode=wal"));
}

// Runs the statements of a new store's schema that begin so.
void RestoredStore::run_schema(const std::string& beginning) const {
  for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
    if (sql.compare(0, beginning.size(), beginning) == 0) require(connection_.run(sql));
  }
}

void RestoredStore::prepare(std::size_t table) {
  insert_.emplace(connection_, insert_statement(export_tables()[table]));
  const int rc = insert_->prepared();
  require(rc == SQLITE_OK ? SQLITE_DONE : rc);
  prepared_ = table;
}

// Returns whether the row needs check_types().
bool RestoredStore::bind(const ExportTable& table, const Record& record) {
  bool needs_check = false;
  int place = 0;
  for (const ExportColumn& column : table.columns) {
    const Json& value = member(record, column.name);
    const bool is_row_id = ++place == 1;
    if (is_row_id && !value.is_number()) fail_field(column.name, "must be a whole number");
    const std::string error = bind_value(insert_->handle(), place, value, column, needs_check);
    if (!error.empty()) fail_field(column.name, error);
  }
  return needs_check;
}

void RestoredStore::step() {
  const int rc = insert_->step();
  insert_->reset();
  if (rc == SQLITE_CONSTRAINT) {
    throw LineError(
        fmt::format("an earlier line has the same key ({}){}", connection_.error(), kSeeSource));
  }
  if (rc == SQLITE_TOOBIG) throw LineError(connection_.error());
  require(rc);
}

// Fails if a column has converted a value, such as a text of digits to a number.
void RestoredStore::check_types(const ExportTable& table, const Record& record) const {
  const auto row_id = record.json[table.columns[0].name].get<int64_t>();
  for (const ExportColumn& column : table.columns) {
    const Json& value = record.json[column.name];
    if (!value.is_object()) continue;
    const std::string stored = stored_type(table, column, row_id);
    if (stored == type_of(value, column)) continue;
    fail_field(column.name,
               fmt::format("the column cannot hold this: it becomes {}{}", stored, kSeeSource));
  }
}

std::string RestoredStore::stored_type(const ExportTable& table, const ExportColumn& column,
                                       int64_t row_id) const {
  std::string type;
  require(connection_.each_row(
      fmt::format("select typeof({}) from {} where rowid=?", column.name, table.name),
      [&type](const Row& row) { type = row.text(0); }, row_id));
  return type;
}

void RestoredStore::require(int rc) const {
  if (rc == SQLITE_DONE) return;
  throw ToolError(name_ + ": " + connection_.error() +
                  "; nothing was kept; there must be enough room for the store");
}

}  // namespace corvan_tool
