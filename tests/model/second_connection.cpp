// Opens, prepares and closes with calls that support/sqlite_ledger.cpp does not wrap, so that the
// ledger holds only the store's texts.

#include "tests/model/second_connection.h"

#include <sqlite3.h>

#include <stdexcept>
#include <utility>

#include "tests/support/unrecorded.h"

namespace corvan_test {

namespace {

constexpr const char* kQueries[] = {
    "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id",
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
    "silence,latest_id,read_time,receipt_time from t_session order by rowid",
    "select user_id,receive_time,sent_time from t_sync order by user_id",
};

}  // namespace

void SecondConnection::Close::operator()(sqlite3* db) const {
  sqlite3_close_v2(db);
}

void SecondConnection::Finalize::operator()(sqlite3_stmt* stmt) const {
  sqlite3_finalize(stmt);
}

SecondConnection::SecondConnection(std::string file, int wait)
    : file_(std::move(file)), wait_(wait) {}

SecondConnection::~SecondConnection() = default;

std::vector<std::string> SecondConnection::rows() {
  open();
  if (queries_.empty()) {
    for (const char* sql : kQueries) queries_.push_back(prepare(sql));
  }
  std::vector<std::string> all;
  for (const Statement& query : queries_) append(query.get(), all);
  return all;
}

void SecondConnection::run(const std::string& sql) {
  open();
  const char* rest = sql.c_str();
  std::vector<std::string> ignored;
  while (*rest != '\0') append(prepare(rest).get(), ignored);
}

void SecondConnection::close() {
  queries_.clear();
  db_.reset();
}

void SecondConnection::open() {
  if (db_ != nullptr) return;
  sqlite3* db = nullptr;
  const int rc = sqlite3_open(file_.c_str(), &db);
  db_.reset(db);
  if (rc != SQLITE_OK) fail();
  sqlite3_busy_timeout(db, wait_);
}

SecondConnection::Statement SecondConnection::prepare(const char*& sql) const {
  sqlite3_stmt* stmt = nullptr;
  if (prepare_unrecorded(db_.get(), sql, &stmt, &sql) != SQLITE_OK) fail();
  return Statement(stmt);
}

void SecondConnection::append(sqlite3_stmt* stmt, std::vector<std::string>& rows) const {
  int rc = SQLITE_ROW;
  while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    std::string& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(stmt); ++column) {
      if (column > 0) row += '|';
      const unsigned char* value = sqlite3_column_text(stmt, column);
      const auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt, column));
      if (value == nullptr) {
        row += "NULL";
      } else {
        row.append(reinterpret_cast<const char*>(value), size);
      }
    }
  }
  sqlite3_reset(stmt);
  if (rc != SQLITE_DONE) fail();
}

void SecondConnection::fail() const {
  throw std::runtime_error(sqlite3_errmsg(db_.get()));
}

}  // namespace corvan_test
