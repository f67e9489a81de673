#ifndef TESTS_MODEL_SECOND_CONNECTION_H_
#define TESTS_MODEL_SECOND_CONNECTION_H_

#include <memory>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace corvan_test {

// A connection of its own to the store's file: sees what is committed, and changes rows behind the
// store's back. Opened when it is first used and then kept, with no transaction open in between;
// closed by hand before the store closes, so that the store is the last one to do it.
class SecondConnection {
 public:
  explicit SecondConnection(std::string file);
  SecondConnection(const SecondConnection&) = delete;
  SecondConnection& operator=(const SecondConnection&) = delete;
  ~SecondConnection();

  // All rows: messages by id, conversations in the order of their rows, sync times by user; each as
  // its columns with "|" between. This and run() throw std::runtime_error, with SQLite's text.
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
  // Moves `sql` behind the statement.
  Statement prepare(const char*& sql) const;
  void append(sqlite3_stmt* stmt, std::vector<std::string>& rows) const;
  [[noreturn]] void fail() const;

  std::string file_;
  std::unique_ptr<sqlite3, Close> db_;
  std::vector<Statement> queries_;  // of rows(), ended before the connection
};

}  // namespace corvan_test

#endif  // TESTS_MODEL_SECOND_CONNECTION_H_
