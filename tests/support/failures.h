// Makes statements fail, and returns the log lines that the store then writes, in the format of
// LogCapture.

#ifndef TESTS_SUPPORT_FAILURES_H_
#define TESTS_SUPPORT_FAILURES_H_

#include <string>
#include <vector>

struct sqlite3;

namespace corvan_test {

// A trigger that refuses a write such as "insert on t_message": its step fails with kRefusedCode
// and kRefusedText.
std::string refuse(const std::string& event);
constexpr int kRefusedCode = 19;
constexpr const char* kRefusedText = "refused";

// While it exists, interrupts the store's statements: after `steps` instructions of SQLite's
// virtual machine every further step fails. Preparing never fails.
class StepsUntilInterrupt {
 public:
  explicit StepsUntilInterrupt(int steps);
  StepsUntilInterrupt(const StepsUntilInterrupt&) = delete;
  StepsUntilInterrupt& operator=(const StepsUntilInterrupt&) = delete;
  ~StepsUntilInterrupt();

 private:
  static int progress(void* self);

  int left_;
  sqlite3* db_;
};

// The line of a failed prepare; SQLite reports most of them, such as a missing table, as code 1.
std::string prepare_failed(const std::string& error, int code = 1);
std::string no_table(const std::string& name);

std::string step_failed(int code, const std::string& error);
std::string reset_failed(int code, const std::string& error);
std::string finalize_failed(int code, const std::string& error);

// The two lines of a statement that is finalised after its step failed.
std::vector<std::string> run_failed(int code, const std::string& error);
std::vector<std::string> run_refused();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_FAILURES_H_
