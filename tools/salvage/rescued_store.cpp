#include "tools/salvage/rescued_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <numeric>

#include "tools/store/library_store.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Larger ids may be read, but not only from an index or a doubtful row: none could follow them.
constexpr std::int64_t kLargestBelieved = std::numeric_limits<std::int64_t>::max() / 2;

// What is kept beside the rows while they come in lies in a temporary database, "scratch": doubtful
// ones, ids that are known to be there or to have been, and ids of rows from pages that no tree
// leads to.

std::string doubtful_table(const SalvageTable& table) {
  return "scratch.doubtful_" + table.name;
}
std::string named_table(const SalvageTable& table) {
  return "scratch.named_" + table.name;
}
std::string unreached_table(const SalvageTable& table) {
  return "scratch.unreached_" + table.name;
}

// Each column between `before` and `after`, with commas.
std::string listed(const std::vector<std::string>& columns, const std::string& before = "",
                   const std::string& after = "", const std::string& between = ",") {
  std::string list;
  for (const std::string& column : columns) {
    if (!list.empty()) list += between;
    list.append(before).append(column).append(after);
  }
  return list;
}

// Each column twice: behind `before` and behind `middle`.
std::string equal_columns(const std::vector<std::string>& columns, const std::string& before,
                          const std::string& middle, const std::string& between = ",") {
  std::string list;
  for (const std::string& column : columns) {
    if (!list.empty()) list += between;
    list.append(before).append(column).append(middle).append(column);
  }
  return list;
}

std::string places(std::size_t count) {
  std::string list = "?";
  for (std::size_t i = 1; i < count; ++i) list += ",?";
  return list;
}

void bind(sqlite3_stmt* stmt, int place, const Value& value) {
  switch (value.kind) {
    case Value::kNull:
      sqlite3_bind_null(stmt, place);
      break;
    case Value::kInteger:
      sqlite3_bind_int64(stmt, place, value.integer);
      break;
    case Value::kReal: {
      double number = 0;
      static_assert(sizeof number == sizeof value.integer);
      std::copy_n(reinterpret_cast<const char*>(&value.integer), sizeof number,
                  reinterpret_cast<char*>(&number));
      sqlite3_bind_double(stmt, place, number);
      break;
    }
    case Value::kText:
      sqlite3_bind_text64(stmt, place, value.bytes.data(), value.bytes.size(), SQLITE_STATIC,
                          SQLITE_UTF8);
      break;
    case Value::kBlob:
      sqlite3_bind_blob64(stmt, place, value.bytes.data(), value.bytes.size(), SQLITE_STATIC);
      break;
  }
}

// The values of the columns: all but the one that the key stands for.
std::vector<const Value*> column_values(const SalvageTable& table, const FoundRow& row) {
  std::vector<const Value*> values;
  for (std::size_t i = 0; i < table.shape.size(); ++i) {
    if (table.shape[i] != kRowIdShape) values.push_back(&row.values->at(i));
  }
  return values;
}

// An empty store of the library.
void make_store(const std::string& folder, const std::string& name) {
  const OpenStore made(folder, "");
  if (!made.failure().empty()) throw ToolError(name + ": " + made.failure() + "; nothing was kept");
}

}  // namespace

std::int64_t TableResult::all_doubtful() const {
  return std::accumulate(doubtful.begin(), doubtful.end(), std::int64_t{0});
}

// Prepared once for many rows.
class SalvageStore::Statement {
 public:
  Statement(const SalvageStore& store, const std::string& sql) : store_(store) {
    sqlite3_prepare_v3(store.connection_->handle(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                       &stmt_, nullptr);
    if (stmt_ == nullptr) store_.fail(store_.connection_->error());
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }

  void put(std::int64_t number) { sqlite3_bind_int64(stmt_, ++place_, number); }
  void put(const Value& value) { bind(stmt_, ++place_, value); }
  void put(const std::vector<const Value*>& values) {
    for (const Value* const value : values) put(*value);
  }

  // Runs it with what was put: the first column of the first row, if it gives one.
  std::optional<std::int64_t> run() {
    std::optional<std::int64_t> result;
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) {
      result = sqlite3_column_int64(stmt_, 0);
      rc = SQLITE_DONE;
    }
    const std::string why = rc == SQLITE_DONE ? "" : store_.connection_->error();
    sqlite3_reset(stmt_);
    place_ = 0;
    if (rc != SQLITE_DONE) store_.fail(why);
    return result;
  }

 private:
  const SalvageStore& store_;
  sqlite3_stmt* stmt_ = nullptr;
  int place_ = 0;
};

// The statements of each table.
struct SalvageStore::Tables {
  struct Table {
    Table(const SalvageStore& store, const SalvageTable& table)
        : insert(store, "insert or ignore into " + table.name + "(rowid," + listed(table.columns) +
                            ") values(" + places(table.columns.size() + 1) + ")"),
          find_id(store, "select rowid from " + table.name + " where rowid=?"),
          find_key(store, table.unique.empty() ? "select null where 0"
                                               : "select rowid from " + table.name + " where " +
                                                     listed(table.unique, "", " is ?", " and ")),
          find_equal(store, "select 1 from " + table.name + " where rowid=? and " +
                                listed(table.columns, "", " is ?", " and ")),
          add_doubtful(store, "insert into " + doubtful_table(table) + " values(" +
                                  places(table.columns.size() + 2) + ")"),
          find_doubtful(store,
                        "select 1 from " + doubtful_table(table) + " where row_id=? and reason=?"),
          move_to_doubtful(store, "insert into " + doubtful_table(table) + " select rowid,?," +
                                      listed(table.columns) + " from " + table.name +
                                      " where rowid=?"),
          remove(store, "delete from " + table.name + " where rowid=?"),
          add_unreached(store, "insert or ignore into " + unreached_table(table) + " values(?)"),
          find_unreached(store, "select 1 from " + unreached_table(table) + " where row_id=?"),
          name(store, "insert or ignore into " + named_table(table) + "(row_id) values(?)") {}

    Statement insert;
    Statement find_id;
    Statement find_key;
    Statement find_equal;
    Statement add_doubtful;
    Statement find_doubtful;
    Statement move_to_doubtful;
    Statement remove;
    Statement add_unreached;
    Statement find_unreached;
    Statement name;
  };

  std::vector<std::unique_ptr<Table>> tables;
  std::vector<std::unique_ptr<Statement>> name_by_index;  // null where a row id is all to keep
};

SalvageStore::SalvageStore(const SalvageSchema& schema, const std::string& folder, std::string name)
    : schema_(schema),
      name_(std::move(name)),
      results_(schema.tables.size()),
      has_versions_(schema.tables.size(), false) {
  make_store(folder, name_);
  connection_ = std::make_unique<Connection>(store_file(folder));
  // The file is nobody's yet: no log is needed, which would hold every row a second time.
  run("pragma journal_mode=delete");
  run("pragma temp_store=file");
  run("attach '' as scratch");
  run("begin");
  connection_->each_row(
      "select sql from sqlite_master where type='index' and sql is not null",
      [this](sqlite3_stmt* row) { index_statements_.push_back(text_at(row, 0)); });
  for (const SalvageIndex& index : schema_.indexes) {
    if (!index.sql.empty()) run("drop index " + index.name);
  }
  connection_->each_row("select database_version from t_version",
                        [this](sqlite3_stmt* row) { version_ = text_at(row, 0); });
  run("delete from t_version");

  tables_ = std::make_unique<Tables>();
  for (std::size_t i = 0; i < schema_.sequences; ++i) {
    const SalvageTable& table = schema_.tables[i];
    run("create table " + doubtful_table(table) + "(row_id,reason," + listed(table.columns) + ")");
    run("create index " + doubtful_table(table) + "_id on doubtful_" + table.name +
        "(row_id,reason)");
    run("create table " + unreached_table(table) + "(row_id integer primary key)");
    run("create table " + named_table(table) + "(row_id integer primary key" +
        (i == schema_.messages ? ")" : "," + listed(table.columns) + ")"));
    tables_->tables.push_back(std::make_unique<Tables::Table>(*this, table));
  }
  for (const SalvageIndex& index : schema_.indexes) {
    tables_->name_by_index.emplace_back();
    if (index.table == schema_.messages) continue;
    std::vector<std::string> columns(index.columns.begin(), index.columns.end() - 1);
    tables_->name_by_index.back() = std::make_unique<Statement>(
        *this, "insert into " + named_table(schema_.tables[index.table]) + "(" + listed(columns) +
                   ",row_id) values(" + places(index.columns.size()) +
                   ") on conflict(row_id) do update set " +
                   equal_columns(columns, "", "=excluded."));
  }
}

SalvageStore::~SalvageStore() = default;

void SalvageStore::fail(const std::string& why) const {
  throw ToolError(name_ + ": " + why +
                  "; nothing was kept; it needs room for the rows, and so do temporary files");
}

void SalvageStore::run(const std::string& sql) const {
  if (connection_->run(sql) != SQLITE_DONE) fail(connection_->error());
}

std::int64_t SalvageStore::number(const std::string& sql) const {
  return Statement(*this, sql).run().value_or(0);
}

void SalvageStore::add_doubtful(std::size_t table, const FoundRow& row, Doubt doubt) {
  Statement& statement = tables_->tables[table]->add_doubtful;
  statement.put(row.id);
  statement.put(static_cast<std::int64_t>(doubt));
  statement.put(column_values(schema_.tables[table], row));
  statement.run();
}

void SalvageStore::add(std::size_t table, const FoundRow& row) {
  Tables::Table& statements = *tables_->tables[table];
  if (row.doubt != Doubt::kNone) {
    add_doubtful(table, row, row.doubt);
    return;
  }
  if (has_versions_[table]) {
    statements.find_doubtful.put(row.id);
    statements.find_doubtful.put(static_cast<std::int64_t>(Doubt::kVersions));
    if (statements.find_doubtful.run()) {
      add_doubtful(table, row, Doubt::kVersions);
      return;
    }
  }
  statements.insert.put(row.id);
  statements.insert.put(column_values(schema_.tables[table], row));
  statements.insert.run();
  if (sqlite3_changes(connection_->handle()) == 0) {
    settle_conflict(table, row);
    return;
  }
  if (row.is_in_log) ++results_[table].from_log;
  if (row.is_reached) return;
  statements.add_unreached.put(row.id);
  statements.add_unreached.run();
}

// A row of this id or key is there already.
void SalvageStore::settle_conflict(std::size_t table, const FoundRow& row) {
  Tables::Table& statements = *tables_->tables[table];
  const std::vector<const Value*> values = column_values(schema_.tables[table], row);
  statements.find_equal.put(row.id);
  statements.find_equal.put(values);
  if (statements.find_equal.run()) return;

  statements.find_id.put(row.id);
  std::optional<std::int64_t> other = statements.find_id.run();
  if (!other) {
    const SalvageTable& shape = schema_.tables[table];
    for (std::size_t i = 0; i < values.size(); ++i) {
      const bool is_key = std::find(shape.unique.begin(), shape.unique.end(), shape.columns[i]) !=
                          shape.unique.end();
      if (is_key) statements.find_key.put(*values[i]);
    }
    other = statements.find_key.run();
  }
  if (!other) fail("a row was refused");

  statements.find_unreached.put(*other);
  const bool other_is_reached = !statements.find_unreached.run();
  if (other_is_reached && !row.is_reached) return;  // an old copy of the page
  statements.move_to_doubtful.put(static_cast<std::int64_t>(Doubt::kVersions));
  statements.move_to_doubtful.put(*other);
  statements.move_to_doubtful.run();
  statements.remove.put(*other);
  statements.remove.run();
  add_doubtful(table, row, Doubt::kVersions);
  has_versions_[table] = true;
}

void SalvageStore::name(std::size_t table, std::int64_t row_id) {
  Statement& statement = tables_->tables[table]->name;
  statement.put(row_id);
  statement.run();
}

void SalvageStore::name(const SalvageIndex& index, const std::vector<Value>& values) {
  const auto place = static_cast<std::size_t>(&index - schema_.indexes.data());
  if (tables_->name_by_index[place] == nullptr) {
    name(index.table, values.back().integer);
    return;
  }
  Statement& statement = *tables_->name_by_index[place];
  for (const Value& value : values) statement.put(value);
  statement.run();
}

void SalvageStore::set_sequence(std::int64_t largest_id) {
  sequence_ = std::max(sequence_.value_or(largest_id), largest_id);
}

// What came from pages that nothing leads to must be named by an index that could be read whole;
// what is doubtful is forgotten when a row of its id or key is there.
void SalvageStore::settle_doubtful(std::size_t table, const TableState& state) {
  const SalvageTable& shape = schema_.tables[table];
  if (state.has_all_names) {
    const std::string unnamed = " where rowid in(select row_id from " + unreached_table(shape) +
                                ") and rowid not in(select row_id from " + named_table(shape) + ")";
    run("insert into " + doubtful_table(shape) + " select rowid," +
        std::to_string(static_cast<int>(Doubt::kUnreached)) + "," + listed(shape.columns) +
        " from " + shape.name + unnamed);
    run("delete from " + shape.name + unnamed);
  }
  run("delete from " + doubtful_table(shape) + " where row_id in(select rowid from " + shape.name +
      ")");
  if (shape.unique.empty()) return;
  run("delete from " + doubtful_table(shape) + " where exists(select 1 from " + shape.name +
      " as kept where " +
      equal_columns(shape.unique, "kept.", " is doubtful_" + shape.name + ".", " and ") + ")");
}

// Where the tree was read whole, a name without a row is a damaged entry of an index.
void SalvageStore::forget_false_names(std::size_t table, const TableState& state) const {
  const std::string from = "delete from " + named_table(schema_.tables[table]) + " where row_id";
  run(from + "<=0");
  std::int64_t looked_at = 0;  // up to this id
  for (const auto& [first, last] : state.missing) {
    if (first > looked_at) {
      run(from + ">" + std::to_string(looked_at) + " and row_id<=" + std::to_string(first));
    }
    looked_at = std::max(looked_at, last);
  }
  run(from + ">" + std::to_string(looked_at));
}

// The largest message id that a name is believed: none was given beyond the largest one, unless
// that is contradicted by a row, or commits behind it are lost.
std::int64_t SalvageStore::largest_named() const {
  const bool is_known =
      is_bounded_ && sequence_ && number("select max(id) from t_message") <= *sequence_;
  return is_known ? *sequence_ : kLargestBelieved;
}

// The rows that are named and not there.
std::int64_t SalvageStore::count_lost(std::size_t table) const {
  const SalvageTable& shape = schema_.tables[table];
  std::string condition = " where row_id not in(select rowid from " + shape.name +
                          ") and row_id not in(select row_id from " + doubtful_table(shape) + ")";
  if (table == schema_.messages) condition += " and row_id<=" + std::to_string(largest_named());
  return number("select count(*) from " + named_table(shape) + condition);
}

std::optional<std::int64_t> SalvageStore::lost_at_most(std::size_t table,
                                                       const TableState& state) const {
  if (table != schema_.messages || !sequence_) return std::nullopt;
  std::int64_t lost = 0;
  std::int64_t counted = 0;  // up to this id
  const SalvageTable& shape = schema_.tables[table];
  const std::string count_rows = "select count(*) from " + shape.name + " where rowid between ";
  const std::string count_doubtful =
      "select count(distinct row_id) from " + doubtful_table(shape) + " where row_id between ";
  for (const auto& [first, last] : state.missing) {
    const std::int64_t from = std::max(first, counted);
    const std::int64_t to = std::min(last, *sequence_);
    if (from >= to) continue;
    const std::string range = std::to_string(from + 1) + " and " + std::to_string(to);
    lost += to - from - number(count_rows + range) - number(count_doubtful + range);
    counted = to;
  }
  return lost;
}

void SalvageStore::count(std::size_t table, const TableState& state, TableResult& result) {
  const SalvageTable& shape = schema_.tables[table];
  result.recovered = number("select count(*) from " + shape.name);
  for (std::size_t doubt = 1; doubt < kDoubts; ++doubt) {
    result.doubtful.at(doubt) =
        number("select count(*) from (select min(reason) as reason from " + doubtful_table(shape) +
               " group by row_id) where reason=" + std::to_string(doubt));
  }
  result.lost = count_lost(table);
  if (!is_bounded_) return;
  result.lost_at_most =
      state.is_whole || state.has_all_names ? result.lost : lost_at_most(table, state);
  if (result.lost_at_most) result.lost_at_most = std::max(*result.lost_at_most, result.lost);
}

// Of several versions the one that was met first.
std::int64_t SalvageStore::take_doubtful(std::size_t table) {
  const SalvageTable& shape = schema_.tables[table];
  run("insert or ignore into " + shape.name + "(rowid," + listed(shape.columns) +
      ") select row_id," + listed(shape.columns) + " from " + doubtful_table(shape) +
      " order by reason desc,rowid");
  return sqlite3_changes64(connection_->handle());
}

// A conversation of which only index entries are left is made from them. Where these may be
// incomplete as well, one is made of each that messages name. A sound t_session needs none: a
// conversation without a row was removed from the list.
std::int64_t SalvageStore::make_sessions(const TableState& state, std::int64_t& lost) {
  if (state.is_whole) return 0;
  const std::string newest =
      "(select %s from t_message as m where m.session_id=s.session_id and "
      "m.session_type=s.session_type order by sent_time desc,id desc limit 1)";
  const auto of_newest = [&newest](const std::string& column) {
    return std::string(newest).replace(newest.find("%s"), 2, column);
  };
  run("insert or ignore into t_session(rowid,session_id,session_type,is_top,session_time,"
      "unread_count,mention_count,silence,latest_id) "
      "select row_id,session_id,session_type,coalesce(is_top,0),coalesce(session_time," +
      of_newest("sent_time") +
      ",0),coalesce(unread_count,0),coalesce(mention_count,0),coalesce(silence,0),"
      "coalesce(latest_id," +
      of_newest("id") +
      ",-1) from scratch.named_t_session as s where typeof(session_id)='text' and "
      "typeof(session_type)='integer' and row_id not in(select row_id from "
      "scratch.doubtful_t_session)");
  const std::int64_t from_names = sqlite3_changes64(connection_->handle());
  if (state.has_all_names) return from_names;
  const std::int64_t named_only = number(
      "select count(*) from scratch.named_t_session where "
      "(typeof(session_id)<>'text' or typeof(session_type)<>'integer') and row_id not in"
      "(select rowid from t_session) and row_id not in"
      "(select row_id from scratch.doubtful_t_session)");
  run("insert or ignore into t_session(session_id,session_type,session_time,latest_id) "
      "select session_id,session_type," +
      of_newest("sent_time") + "," + of_newest("id") +
      " from (select distinct session_id,session_type from t_message) as s "
      "where not exists(select 1 from scratch.doubtful_t_session as d where "
      "d.session_id=s.session_id and d.session_type=s.session_type)");
  const std::int64_t from_messages = sqlite3_changes64(connection_->handle());
  // Of these are those that are named by nothing but a row id, and are counted as lost already.
  lost += std::max<std::int64_t>(0, from_messages - named_only);
  return from_names + from_messages;
}

std::int64_t SalvageStore::make_version() {
  if (number("select count(*) from t_version") > 0) return 0;
  if (connection_->run("insert into t_version(rowid,database_version) values(1,?)", version_) !=
      SQLITE_DONE) {
    fail(connection_->error());
  }
  return 1;
}

// The largest id of a message that was read, left out or named; 0 when there is none.
std::int64_t SalvageStore::known_largest_id() const {
  const SalvageTable& messages = schema_.tables[schema_.messages];
  const auto largest = [this](const std::string& table, std::int64_t most) {
    return number("select max(row_id) from " + table + " where row_id<=" + std::to_string(most));
  };
  return std::max({number("select max(id) from t_message"),
                   largest("(select row_id from " + doubtful_table(messages) + " where reason<>" +
                               std::to_string(static_cast<int>(Doubt::kPlace)) + ")",
                           kLargestBelieved),
                   largest(named_table(messages), largest_named())});
}

// No id is given a second time, those of lost messages included.
void SalvageStore::write_sequence() {
  const std::int64_t largest = known_largest_id();
  if (largest > 0) set_sequence(largest);
  run("delete from sqlite_sequence where name='t_message'");
  if (sequence_) {
    run("insert into sqlite_sequence(name,seq) values('t_message'," + std::to_string(*sequence_) +
        ")");
  }
}

void SalvageStore::close_file() {
  tables_.reset();
  run("commit");
  run("detach scratch");
  run("pragma journal_mode=wal");
  std::string answer;
  connection_->each_row("pragma integrity_check",
                        [&answer](sqlite3_stmt* row) { answer += text_at(row, 0); });
  if (answer != "ok") fail(answer);
  connection_.reset();
}

std::vector<TableResult> SalvageStore::finish(const std::vector<TableState>& states,
                                              bool with_doubtful, bool is_bounded) {
  is_bounded_ = is_bounded;
  for (std::size_t table = 0; table < schema_.sequences; ++table) {
    forget_false_names(table, states[table]);
    settle_doubtful(table, states[table]);
    count(table, states[table], results_[table]);
  }
  for (std::size_t table = 0; with_doubtful && table < schema_.sequences; ++table) {
    results_[table].taken = take_doubtful(table);
  }
  for (const std::string& sql : index_statements_) run(sql);
  TableResult& sessions = results_[schema_.sessions];
  sessions.made = make_sessions(states[schema_.sessions], sessions.lost);
  if (sessions.lost_at_most) {
    sessions.lost_at_most = std::max(*sessions.lost_at_most, sessions.lost);
  }
  results_[schema_.versions].made = make_version();
  write_sequence();
  close_file();
  return results_;
}

}  // namespace corvan_tool
