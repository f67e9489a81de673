// Connections of the benchmark's own, beside those of the store and of the library.

#ifndef BENCH_SEARCH_DATABASE_H_
#define BENCH_SEARCH_DATABASE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace corvan_bench {

// A connection. Every member throws std::runtime_error with SQLite's text if it fails.
class Database {
 public:
  // Creates the file if it does not exist.
  explicit Database(const std::string& file);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  void run(const std::string& sql);
  sqlite3* handle() const { return handle_; }

 private:
  sqlite3* handle_ = nullptr;
};

// A prepared statement of a connection, which must exist longer.
class Statement {
 public:
  Statement(const Database& database, const std::string& sql);

  // Parameters count from 1. `value` must exist until the next reset().
  void bind(int parameter, std::string_view value);
  void bind(int parameter, int64_t value);
  // Whether there is another row.
  bool step();
  // Ready to run again, with other values.
  void reset();

  // Columns count from 0. A text exists until the next step() or reset().
  int64_t number(int column) const;
  std::string_view text(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  void check(int result) const;

  sqlite3* database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_DATABASE_H_
