// Runs work in a child process, so that a crash can be reported.

#ifndef TESTS_DAMAGE_CHILD_H_
#define TESTS_DAMAGE_CHILD_H_

#include <array>
#include <functional>
#include <string>

namespace corvan_test {

// What a process did with the files of a store. It lies in shared memory, so the parent sees what
// the child wrote before a crash.
struct Outcome {
  bool opened = false;             // the first opening returned true
  bool deleted = false;            // the file was deleted, by the operation `deleted_by` first
  bool failed = false;             // a failure of SQLite was logged, `failure` first
  bool wrong = false;              // other rows were read than stored before any failure was logged
  bool found = false;              // check_integrity() told that the file is damaged
  bool changed = false;            // the file was kept, and written
  std::array<char, 64> running{};  // the operation that runs, or ran last
  std::array<char, 64> deleted_by{};
  std::array<char, 300> failure{};
  std::array<char, 4000> complaint{};  // what must not be
};

void note_running(Outcome& outcome, const std::string& operation);
void note_deletion(Outcome& outcome, const std::string& operation);
void note_failure(Outcome& outcome, const std::string& line);
void complain(Outcome& outcome, const std::string& text);

struct Ended {
  Outcome outcome;
  std::string otherwise;  // how the process ended when not as it should: by a signal, by a checker
};

// Runs `work` in a child process, for at most a minute. The child ends through exit(), so that the
// sanitizers look for leaks. An exception counts as a complaint.
Ended in_child(const std::function<void(Outcome&)>& work);

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_CHILD_H_
