#ifndef TESTS_MODEL_SECOND_CONNECTION_H_
#define TESTS_MODEL_SECOND_CONNECTION_H_

#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace corvan_test {

// A separate connection to the store's file, which sees what is committed and changes rows without
// the store. It is opened at its first use and kept, without an open transaction. Close it before
// the store, so that the store's connection is the last to close.
class SecondConnection {
 public:
  // Waits for a lock for as long as `wait`, in milliseconds.
  explicit SecondConnection(std::string file, int wait = 2000);
  SecondConnection(const SecondConnection&) = delete;
  SecondConnection& operator=(const SecondConnection&) = delete;
  ~SecondConnection();

  // All rows: messages by id, conversations by row id, sync times by user; each row is its columns
  // joined by "|". This and run() throw std::runtime_error with SQLite's text.
  std::vector<std::string> rows();

  void run(const std::string& sql);
  void close();

 private:
  struct Close {
    void operator()(sqlite3* db) const;
  };
  struct Finalize {
    void operator()(sqlite3_stmt* stmt) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

  void open();
  // Moves `sql` to the end of the statement.
  Statement prepare(const char*& sql) const;
  void append(sqlite3_stmt* stmt, std::vector<std::string>& rows) const;
  [[noreturn]] void fail() const;

  std::string file_;
  int wait_;
  std::unique_ptr<sqlite3, Close> db_;
  std::vector<Statement> queries_;  // of rows(), ended before the connection
};

}  // namespace corvan_test

#endif  // TESTS_MODEL_SECOND_CONNECTION_H_
