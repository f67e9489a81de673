#include "tests/addons/search/token_table.h"

#include <sqlite3.h>

#include "addons/search/tokenizer.h"

namespace corvan_test {

namespace {

class Rows {
 public:
  Rows(sqlite3* connection, const char* sql) : connection_(connection) {
    sqlite3_prepare_v2(connection, sql, -1, &statement_, nullptr);
  }
  ~Rows() { sqlite3_finalize(statement_); }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;

  void bind(int place, const std::string& text) {
    sqlite3_bind_text(statement_, place, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }
  void bind(int place, int64_t number) { sqlite3_bind_int64(statement_, place, number); }

  // False at the end. A failure is added to `error`.
  bool next(std::string& error) {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) error += sqlite3_errmsg(connection_);
    return result == SQLITE_ROW;
  }
  int64_t number() { return sqlite3_column_int64(statement_, 0); }
  std::string text() {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, 0));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, 0))};
  }

 private:
  sqlite3* connection_;
  sqlite3_stmt* statement_ = nullptr;
};

}  // namespace

TokenTable::TokenTable() {
  sqlite3_open(":memory:", &connection_);
  if (Corvan::search::register_tokenizer(connection_) != SQLITE_OK) error_ = "not registered";
  run("create virtual table texts using fts5(text, content='', detail=none, columnsize=0, "
      "tokenize='corvan')");
  run("create virtual table words using fts5vocab(texts, row)");
}

TokenTable::~TokenTable() {
  sqlite3_close(connection_);
}

void TokenTable::run(const std::string& sql) {
  if (sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return;
  error_ += sqlite3_errmsg(connection_);
}

void TokenTable::clear() {
  run("insert into texts(texts) values ('delete-all')");
}

void TokenTable::add(int64_t id, const std::string& text) {
  Rows rows(connection_, "insert into texts(rowid, text) values (?1, ?2)");
  rows.bind(1, id);
  rows.bind(2, text);
  rows.next(error_);
}

std::vector<int64_t> TokenTable::find(const Corvan::search::Query& query) {
  Rows rows(connection_, "select rowid from texts where texts match ?1 order by rowid");
  rows.bind(1, Corvan::search::MatchExpression::text(query.tokens()));
  std::vector<int64_t> ids;
  while (rows.next(error_)) ids.push_back(rows.number());
  return ids;
}

std::vector<std::string> TokenTable::tokens() {
  Rows rows(connection_, "select term from words order by term");
  std::vector<std::string> all;
  while (rows.next(error_)) all.push_back(rows.text());
  return all;
}

}  // namespace corvan_test
