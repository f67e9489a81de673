#include "tools/salvage/rescue/rescued_store.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>

#include "tools/store/key.h"
#include "tools/store/library_store.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Lets the library make an empty store.
void make_store(const std::string& folder, const std::string& name) {
  const LibraryStore made(folder, "");
  if (!made.failure().empty()) throw ToolError(name + ": " + made.failure() + "; nothing was kept");
}

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

// Notes an entry of an index: the values of its columns, then the row id.
std::unique_ptr<RowStatement> name_by_index(const RescueFile& file, const KnownTable& table,
                                            const KnownIndex& index) {
  return std::make_unique<RowStatement>(
      file, fmt::format("insert into {}({},row_id) values({}) "
                        "on conflict(row_id) do update set {}",
                        named_table(table), column_list(index.columns),
                        parameter_list(index.columns.size() + 1),
                        column_list(index.columns, "{0}=excluded.{0}")));
}

}  // namespace

// The statements that are run for each row of a table. The comments list their parameters; "values"
// are those of the table's columns.
struct RescuedStore::RowStatements {
  RowStatements(const RescueFile& file, const KnownTable& table);

  RowStatement insert;            // id, values; does nothing if the id or key is taken
  RowStatement find_id;           // id; returns the id if the row exists
  RowStatement find_key;          // values of the key; returns the id of its row
  RowStatement find_equal;        // id, values; returns a row if an equal row exists
  RowStatement remove;            // id
  RowStatement add_doubtful;      // id, Doubt, values
  RowStatement find_doubtful;     // id, Doubt; returns a row if one exists
  RowStatement move_to_doubtful;  // Doubt, id: copies the row
  RowStatement add_unreached;     // id
  RowStatement find_unreached;    // id; returns a row if it was added
  RowStatement name;              // id
};

RescuedStore::RowStatements::RowStatements(const RescueFile& file, const KnownTable& table)
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

RescuedStore::~RescuedStore() = default;

RescuedStore::RescuedStore(const KnownSchema& schema, const std::string& folder,
                           const std::string& name)
    : schema_(schema), results_(schema.tables.size()), has_versions_(schema.tables.size(), false) {
  make_store(folder, name);
  file_ = std::make_unique<RescueFile>(store_file(folder), name);
  prepare_file();
  prepare_statements();
}

void RescuedStore::prepare_file() {
  // Nobody else uses the file yet, and a write-ahead log would hold every row a second time.
  file_->run("pragma journal_mode=delete");
  // SQLite does not encrypt its temporary files: with a key, they stay in memory.
  if (!used_key().is_valid()) file_->run("pragma temp_store=file");
  create_scratch(*file_, schema_);
  file_->run("begin");
  index_statements_ =
      file_->texts("select sql from sqlite_master where type='index' and sql is not null");
  for (const std::string& drop : file_->texts(
           "select 'drop index '||name from sqlite_master where type='index' and sql is not null "
           "order by tbl_name,rowid desc")) {
    file_->run(drop);
  }
  for (const std::string& version : file_->texts("select database_version from t_version")) {
    version_ = version;
  }
  file_->run("delete from t_version");
}

void RescuedStore::prepare_statements() {
  for (std::size_t i = 0; i < schema_.sequences; ++i) {
    statements_.tables.push_back(std::make_unique<RowStatements>(*file_, schema_.tables[i]));
  }
  for (const KnownIndex& index : schema_.indexes) {
    statements_.indexes.emplace_back();
    if (index.table == schema_.messages) continue;
    statements_.indexes.back() = name_by_index(*file_, schema_.tables[index.table], index);
  }
}

// The values of a row's columns, without the alias of the row id.
std::vector<const Value*> RescuedStore::column_values(std::size_t table,
                                                      const FoundRow& row) const {
  const std::string& shape = schema_.tables[table].shape;
  std::vector<const Value*> values;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] != kRowIdShape) values.push_back(&row.values->at(i));
  }
  return values;
}

void RescuedStore::add_doubtful(std::size_t table, const FoundRow& row, Doubt doubt) {
  statements_.tables[table]->add_doubtful.run(row.id, static_cast<std::int64_t>(doubt),
                                              column_values(table, row));
}

// Whether there are already different rows of this id.
bool RescuedStore::has_version(std::size_t table, std::int64_t id) {
  return has_versions_[table] && statements_.tables[table]->find_doubtful.run(
                                     id, static_cast<std::int64_t>(Doubt::kVersions));
}

void RescuedStore::add(std::size_t table, const FoundRow& row) {
  if (row.doubt != Doubt::kNone || has_version(table, row.id)) {
    add_doubtful(table, row, row.doubt != Doubt::kNone ? row.doubt : Doubt::kVersions);
    return;
  }
  RowStatements& statements = *statements_.tables[table];
  statements.insert.run(row.id, column_values(table, row));
  if (sqlite3_changes(file_->connection().handle()) == 0) {
    settle_conflict(table, row);
    return;
  }
  if (row.is_in_log) ++results_[table].from_log;
  if (!row.is_reached) statements.add_unreached.run(row.id);
}

// Handles a row whose id or key is in the store already.
void RescuedStore::settle_conflict(std::size_t table, const FoundRow& row) {
  RowStatements& statements = *statements_.tables[table];
  if (statements.find_equal.run(row.id, column_values(table, row))) return;
  const std::int64_t other = find_conflicting(table, row);
  const bool other_is_reached = !statements.find_unreached.run(other);
  if (other_is_reached && !row.is_reached) return;  // an old copy of the page
  statements.move_to_doubtful.run(static_cast<std::int64_t>(Doubt::kVersions), other);
  statements.remove.run(other);
  add_doubtful(table, row, Doubt::kVersions);
  has_versions_[table] = true;
}

// The id of the row that has this row's id or key.
std::int64_t RescuedStore::find_conflicting(std::size_t table, const FoundRow& row) {
  RowStatements& statements = *statements_.tables[table];
  if (const auto same_id = statements.find_id.run(row.id)) return *same_id;
  const KnownTable& known = schema_.tables[table];
  const std::vector<const Value*> values = column_values(table, row);
  std::vector<const Value*> key;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto& unique = known.unique;
    const bool is_key = std::find(unique.begin(), unique.end(), known.columns[i]) != unique.end();
    if (is_key) key.push_back(values[i]);
  }
  const auto same_key = statements.find_key.run(key);
  if (!same_key) file_->fail("a row was refused");
  return *same_key;
}

void RescuedStore::name(std::size_t table, std::int64_t row_id) {
  statements_.tables[table]->name.run(row_id);
}

void RescuedStore::name(const KnownIndex& index, const std::vector<Value>& values) {
  const std::unique_ptr<RowStatement>& statement = statements_.indexes[schema_.place_of(index)];
  if (statement == nullptr) {
    name(index.table, values.back().integer);
  } else {
    statement->run(values);
  }
}

void RescuedStore::set_sequence(std::int64_t largest_id) {
  sequence_ = std::max(sequence_.value_or(largest_id), largest_id);
}

std::vector<TableResult> RescuedStore::finish(const Coverage& coverage, bool with_doubtful,
                                              bool is_bounded) {
  const LossCounter losses(*file_, schema_, sequence_, is_bounded);
  for (std::size_t table = 0; table < schema_.sequences; ++table) {
    losses.settle(table, coverage.tables[table]);
    losses.count(table, coverage.tables[table], results_[table]);
  }
  for (std::size_t table = 0; with_doubtful && table < schema_.sequences; ++table) {
    results_[table].taken = losses.take_doubtful(table);
  }
  for (const std::string& sql : index_statements_) file_->run(sql);
  make_rows(coverage);
  write_sequence(losses.largest_known_id());
  close_file();
  results_.resize(schema_.sequences);
  return results_;
}

void RescuedStore::make_rows(const Coverage& coverage) {
  TableResult& sessions = results_[schema_.sessions];
  const MadeSessions made = make_sessions(*file_, coverage.tables[schema_.sessions]);
  sessions.made = made.count;
  sessions.lost += made.not_counted_as_lost;
  if (sessions.lost_at_most) {
    sessions.lost_at_most = std::max(*sessions.lost_at_most, sessions.lost);
  }
  results_[schema_.versions].made = make_version(*file_, version_);
}

// Makes sure that no id is assigned twice, not even that of a lost message.
void RescuedStore::write_sequence(std::int64_t largest_known_id) {
  if (largest_known_id > 0) set_sequence(largest_known_id);
  file_->run("delete from sqlite_sequence where name='t_message'");
  if (!sequence_) return;
  file_->run(
      fmt::format("insert into sqlite_sequence(name,seq) values('t_message',{})", *sequence_));
}

void RescuedStore::close_file() {
  statements_ = {};
  file_->run("commit");
  file_->run("detach scratch");
  file_->run("pragma journal_mode=wal");
  const std::string answer =
      fmt::format("{}", fmt::join(file_->texts("pragma integrity_check"), ""));
  if (answer != "ok") file_->fail(answer);
  file_.reset();
}

}  // namespace corvan_tool
