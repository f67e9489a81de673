// Runs another thread in the middle of an operation.

#ifndef TESTS_THREADS_MEANWHILE_H_
#define TESTS_THREADS_MEANWHILE_H_

#include <atomic>
#include <functional>
#include <string>

struct sqlite3_stmt;

namespace corvan_test {

// Runs `work` on a new thread and waits for it.
void on_another_thread(const std::function<void()>& work);

// Lets another thread do its work while this thread runs a statement: before or after the first
// step of the first statement whose text has this beginning. The test fails if there is no such
// statement.
class Meanwhile {
 public:
  enum Moment { kBefore, kAfter };

  Meanwhile(Moment moment, std::string beginning, std::function<void()> work);
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;
  ~Meanwhile();

  // Called around each step.
  static void reach(Moment moment, sqlite3_stmt* stmt);

 private:
  void run(Moment moment, sqlite3_stmt* stmt);

  static std::atomic<Meanwhile*> armed;

  const Moment moment_;
  const std::string beginning_;
  const std::function<void()> work_;
  bool ran_ = false;
};

}  // namespace corvan_test

#endif  // TESTS_THREADS_MEANWHILE_H_
