// SQLite's results for the statements of an operation. From them, the fault suites derive what the
// operation must return and what the file must contain afterwards.

#ifndef TESTS_SUPPORT_OPERATIONS_ANSWERS_H_
#define TESTS_SUPPORT_OPERATIONS_ANSWERS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace corvan_test {

// One statement, as the store passed it to SQLite.
struct Answer {
  std::string sql;
  int prepared = 0;             // the result code of preparing it
  std::vector<int> steps;       // the result code of each step
  std::string expanded;         // its text with the values of its last step
  int64_t last_row_id = 0;      // the connection's, after its last step
  bool in_transaction = false;  // whether the connection was in one, after its last step

  int code() const;          // of the last step, or of preparing if there was no step
  std::size_t rows() const;  // the number of steps that returned a row
};

// The answers to one operation, in order.
class Answers {
 public:
  explicit Answers(std::vector<Answer> all) : all_(std::move(all)) {}

  // Each takes the next statement, whose text must begin with `text`, and returns its result: its
  // code, or -1 without taking a statement once the store has closed its connection.
  int run(const std::string& text);
  bool done(const std::string& text) { return run(text) == 101; }
  bool row(const std::string& text) { return run(text) == 100; }
  bool row_or_done(const std::string& text);
  // Whether the next statement could be prepared. Does not take it.
  bool prepared(const std::string& text) const;
  // The number of rows until the statement ended or failed; -1 if it could not be prepared.
  int rows(const std::string& text);

  // The statements of an explicit transaction.
  bool begin() { return done("begin transaction"); }
  bool commit();

  // The connection's last row id after the last statement taken.
  int64_t last_row_id() const { return last_row_id_; }
  bool closed() const { return closed_; }

  // The first statement that was expected but not run, or run but not expected; empty if there is
  // none.
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
