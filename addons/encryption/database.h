// A connection of the conversion's own, and its statements.

#ifndef ADDONS_ENCRYPTION_DATABASE_H_
#define ADDONS_ENCRYPTION_DATABASE_H_

#include <sqlite3.h>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "addons/encryption/store_encryption.h"

namespace Corvan::encryption {

// Ends a conversion. Caught by the functions of store_encryption.h.
class ConversionFailure : public std::exception {
 public:
  explicit ConversionFailure(ConversionResult result, std::string detail = std::string())
      : conversion_{result, std::move(detail)} {}
  const Conversion& conversion() const { return conversion_; }

 private:
  Conversion conversion_;
};

class Database;

// A prepared statement.
class Query {
 public:
  // Throws ConversionFailure if the statement cannot be prepared.
  Query(const Database& database, const std::string& sql);
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { sqlite3_finalize(stmt_); }

  // True if there is a row. Throws ConversionFailure if the step fails.
  bool row();
  // Makes it ready for the next set of values.
  void reset() { sqlite3_reset(stmt_); }

  int columns() const { return sqlite3_column_count(stmt_); }
  // SQL NULL reads as "".
  std::string text(int column) const;
  sqlite3_stmt* handle() const { return stmt_; }

 private:
  const Database& database_;
  sqlite3_stmt* stmt_ = nullptr;
};

class Database {
 public:
  // Opens an existing file, which is encrypted with `key` if that is valid, otherwise plain. Throws
  // ConversionFailure.
  Database(const std::string& file, const StoreKey& key);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database() { close(); }

  // Rolls back an open transaction.
  void close();

  // Throws ConversionFailure if the statement fails.
  void run(const std::string& sql) const;
  // Whether a statement can be prepared.
  bool accepts(const std::string& sql) const;
  // The first column of the first row; empty if there is none.
  std::string value(const std::string& sql) const;
  // All rows' first columns.
  std::vector<std::string> values(const std::string& sql) const;

  // Whether the file's name leads to another file by now.
  bool has_moved() const;

  // Throws this result code as a ConversionFailure.
  [[noreturn]] void fail(int code) const;

  sqlite3* handle() const { return connection_; }

 private:
  sqlite3* connection_ = nullptr;
};

// A name as an SQL identifier, and a text as an SQL literal.
std::string identifier(std::string_view name);
std::string literal(std::string_view text);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_DATABASE_H_
