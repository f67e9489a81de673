#include "bench/search/database.h"

#include <sqlite3.h>

#include <stdexcept>

namespace corvan_bench {

namespace {

constexpr int kBusyMilliseconds = 10000;

[[noreturn]] void fail(sqlite3* database) {
  throw std::runtime_error(database == nullptr ? "out of memory" : sqlite3_errmsg(database));
}

}  // namespace

Database::Database(const std::string& file) {
  const int result = sqlite3_open(file.c_str(), &handle_);
  if (result != SQLITE_OK) {
    sqlite3_close(handle_);
    throw std::runtime_error("cannot open " + file);
  }
  sqlite3_busy_timeout(handle_, kBusyMilliseconds);
}

Database::~Database() {
  sqlite3_close_v2(handle_);
}

void Database::run(const std::string& sql) {
  if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(handle_);
}

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Statement::Statement(const Database& database, const std::string& sql)
    : database_(database.handle()) {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(database_, sql.c_str(), -1, &statement, nullptr));
  statement_.reset(statement);
}

void Statement::bind(int parameter, std::string_view value) {
  check(sqlite3_bind_text64(statement_.get(), parameter, value.data(), value.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
}

void Statement::bind(int parameter, int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), parameter, value));
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) fail(database_);
  return result == SQLITE_ROW;
}

void Statement::reset() {
  check(sqlite3_reset(statement_.get()));
}

int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string_view Statement::text(int column) const {
  const auto* const text =
      reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  if (text == nullptr) return {};
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) fail(database_);
}

}  // namespace corvan_bench
