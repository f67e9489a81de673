// Runs work in a child process, so that a crash can be reported. On Windows, the work runs in the
// process of the tests.

#ifndef TESTS_DAMAGE_CHILD_H_
#define TESTS_DAMAGE_CHILD_H_

#include <array>
#include <functional>
#include <string>

namespace corvan_test {

// What a process did with the files of a store. It is in shared memory, so the parent sees what the
// child wrote before a crash.
struct Outcome {
  bool opened = false;             // the first opening returned true
  bool deleted = false;            // the file was deleted; `deleted_by` did it first
  bool failed = false;             // SQLite failures were logged; `failure` is the first
  bool wrong = false;              // wrong rows were read before a failure was logged
  bool found = false;              // check_integrity() reported damage
  bool changed = false;            // the file was kept and written to
  std::array<char, 64> running{};  // the running operation, or the last one
  std::array<char, 64> deleted_by{};
  std::array<char, 300> failure{};
  std::array<char, 4000> complaint{};  // the broken promises
};

void note_running(Outcome& outcome, const std::string& operation);
void note_deletion(Outcome& outcome, const std::string& operation);
void note_failure(Outcome& outcome, const std::string& line);
void complain(Outcome& outcome, const std::string& text);

struct Ended {
  Outcome outcome;
  std::string otherwise;  // how the process ended if abnormally
};

// Runs `work` in a child process, for at most a minute. The child ends through exit(), so that the
// sanitizers look for leaks. An exception counts as a complaint.
Ended in_child(const std::function<void(Outcome&)>& work);

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_CHILD_H_
