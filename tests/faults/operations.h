// The operations that the suites of failing calls run, each on the same small store, and what each
// of them has to return for what SQLite answered.

#ifndef TESTS_FAULTS_OPERATIONS_H_
#define TESTS_FAULTS_OPERATIONS_H_

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/faults/answers.h"

namespace corvan_test {

struct Operation {
  std::string name;
  // Runs it; its result and its out-parameters as text.
  std::function<std::string(Corvan::CvDbSingleton&)> run;
  // The same text, out of SQLite's answers and the rows of the prepared store.
  std::function<std::string(Answers&)> expected;
  // Run before, on the open store, while nothing fails; may be empty.
  std::function<void(Corvan::CvDbSingleton&)> prepare = {};
  enum Start { kOpen, kClosed, kNoFile } start = kOpen;
};

void PrintTo(const Operation& operation, std::ostream* out);

// Makes the store that the operations run on, in `folder`, and closes it: conversation "room" of
// kind 2 with message 1 (received, unread, a mention, time 100, server uid "s1"), 2 (own, client
// uid 5, time 200, "s2") and 3 (own, client uid 6, time 300, being sent, no server uid); "peer" of
// kind 1, with sixty received messages from id 4 and time 1000 on that fill pages of their own;
// "old", pinned, of kind 3, without a message; sync times 3 and 4 of the user "me". Beside it the
// file "older", a store that createdb_copydata() can take once it is attached.
void fill_store(const std::string& folder);

// Those on the store in `folder`.
std::vector<Operation> operations(const std::string& folder);

}  // namespace corvan_test

#endif  // TESTS_FAULTS_OPERATIONS_H_
