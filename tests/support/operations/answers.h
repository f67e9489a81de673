// What SQLite answered to the statements of an operation. The suites that let SQLite fail work out
// from it what the operation has to return, and what it has to leave in the file.

#ifndef TESTS_SUPPORT_OPERATIONS_ANSWERS_H_
#define TESTS_SUPPORT_OPERATIONS_ANSWERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace corvan_test {

// One statement, as the store handed it to SQLite.
struct Answer {
  std::string sql;
  int prepared = 0;             // the code of its preparing
  std::vector<int> steps;       // the code of each step
  std::string expanded;         // its text with the values of its last step
  int64_t last_row_id = 0;      // the connection's, after its last step
  bool in_transaction = false;  // whether the connection was in one, after its last step

  int code() const;          // that of the last step, or of the preparing when that failed
  std::size_t rows() const;  // the steps that gave one
};

// The answers to one operation, taken in their order.
class Answers {
 public:
  explicit Answers(std::vector<Answer> all) : all_(std::move(all)) {}

  // Each takes the next statement, whose text has to begin with `text`, and tells what became of
  // it: its code, or -1, without a statement taken, once the store has closed its connection.
  int run(const std::string& text);
  bool done(const std::string& text) { return run(text) == 101; }
  bool row(const std::string& text) { return run(text) == 100; }
  bool row_or_done(const std::string& text);
  // Whether the next statement, which is not taken, could be prepared.
  bool prepared(const std::string& text) const;
  // The rows that it gave until it ended or failed; -1 when it could not be prepared.
  int rows(const std::string& text);

  // Those of an explicit transaction.
  bool begin() { return done("begin transaction"); }
  bool commit();

  // The connection's last row id, after the statement taken last.
  int64_t last_row_id() const { return last_row_id_; }
  bool closed() const { return closed_; }

  // What was asked for and not run, or run and not asked for; empty when all is well.
  std::string complaint() const;

 private:
  const Answer* take(const std::string& text);

  std::vector<Answer> all_;
  std::size_t at_ = 0;
  bool closed_ = false;
  int64_t last_row_id_ = 0;
  std::string complaint_;
};

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_ANSWERS_H_
