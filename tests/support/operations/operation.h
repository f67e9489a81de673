// The table of the store's operations: one entry for each function that db/cv_db_singleton.h
// declares for callers, overload by overload. The suites that try every operation read it: ledger,
// plan, flat, closed store, faults, memory, power and kill.
//
// Every expected value is a literal that was written from the contract in the header. Nothing here
// may be computed by the code under test.

#ifndef TESTS_SUPPORT_OPERATIONS_OPERATION_H_
#define TESTS_SUPPORT_OPERATIONS_OPERATION_H_

#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/support/operations/answers.h"
#include "tests/support/operations/filled_store.h"
#include "tests/support/operations/texts.h"

namespace corvan_test {

// What an operation commits when it is called outside a transaction.
enum class Commits {
  kNothing,         // it reads, or leaves the file to others
  kOnce,            // one statement
  kOneTransaction,  // several statements in its own transaction
  kSeveral,         // several statements, each committed separately
};

// One or more calls, and every text that they pass to SQLite, in order. `run` gets a store with a
// conversation "room" of kind 2: message 1 is received, unread and a mention; 2 is own and has a
// server uid; 3 is own and has none yet. Read by the suites ledger, plan and power.
struct Statements {
  std::string name;
  std::function<void(Corvan::CvDbSingleton&)> run;
  std::vector<Text> texts;
};

// What a call does on a closed store.
struct ClosedAnswer {
  std::string result;
  std::vector<std::string> log = {};
  std::vector<std::string> texts = {};  // what it passes to SQLite nevertheless
};

// One call with fixed arguments on the store of small_store.h. Read by the suites closed store,
// faults and memory.
struct Call {
  std::string name;
  // Makes the call; returns its result and its out-parameters as text.
  std::function<std::string(Corvan::CvDbSingleton&)> run;
  // The expected text, derived from SQLite's results and from the rows of the small store. Empty if
  // the fault suites reach the operation through another one.
  std::function<std::string(Answers&)> expected;
  ClosedAnswer closed;
  // Run before the call on the open store, while nothing fails; may be empty.
  std::function<void(Corvan::CvDbSingleton&)> prepare = {};
  enum Start { kOpen, kClosed, kNoFile } start = kOpen;
};

// A call whose work does not depend on how much is stored. `run` checks that the call did its work;
// it runs on each of the `rooms`. Full scans may visit at most `full_scan_steps` rows: a page of
// the list with the rows that it skips, or the schema.
struct FlatCase {
  std::string name;
  OnFilledStore run;
  std::vector<std::string> rooms = {kLargest, kTiny};
  int full_scan_steps = 0;
};

// Values of GrowingCase::grows_with that several cases share.
constexpr const char* kPassed = "the messages of the conversation, none of which matches";
constexpr const char* kCounted = "the messages of the conversation, which it counts";
constexpr const char* kChanged = "the messages of the conversation, which it changes";
constexpr const char* kDeleted = "the messages of the conversation, which it deletes";
constexpr const char* kSummed = "the conversations, which it sums up";
constexpr const char* kSessionsPassed = "the conversations, which it passes over";

// A call whose work grows with the rows that it returns, changes, counts or skips.
struct GrowingCase {
  std::string name;
  std::string grows_with;
  OnFilledStore run;
  std::string room = kLargest;
};

// The suites that have to try each operation, and the document that has to describe it. The first
// four read this table; the others name the operation in their own source.
enum class Suite {
  kStatements,
  kFaults,
  kClosed,
  kSteps,        // as a FlatCase or as a GrowingCase
  kHostileText,  // an operation with a text parameter
  kModel,
  kThreads,
  kGrowth,
  kKill,         // an operation that writes
  kReliability,  // an operation that writes: docs/reliability.md says what a crash leaves of it
};

struct Operation {
  // `which` distinguishes overloads.
  Operation(std::string called, Commits makes, std::string which = {})
      : name(std::move(called)), overload(std::move(which)), commits(makes) {}

  std::string name;
  std::string overload;
  Commits commits;
  std::vector<Statements> statements = {};
  std::vector<Call> calls = {};
  std::vector<FlatCase> flat = {};
  std::vector<GrowingCase> growing = {};
  // Suites that do not try the operation, each with the reason.
  std::map<Suite, std::string> left_out = {};
  // Why no suite that reads the table tries the operation; empty for most.
  std::string outside = {};
};

Operation outside_the_suites(const std::string& name, const std::string& reason,
                             const std::string& overload = {});

// Google Test prints a parameter's name in place of its bytes.
void PrintTo(const Operation& operation, std::ostream* out);
void PrintTo(const Statements& statements, std::ostream* out);
void PrintTo(const Call& call, std::ostream* out);
void PrintTo(const FlatCase& flat, std::ostream* out);
void PrintTo(const GrowingCase& growing, std::ostream* out);

using Operations = std::vector<Operation>;

// The whole table. `folder` contains the store that the calls run on; only those that open it, or
// attach a file beside it, need it.
Operations all_operations(const std::string& folder = {});

// All cases of one kind, such as all_cases(&Operation::flat).
template <typename Case>
std::vector<Case> all_cases(std::vector<Case> Operation::*cases, const std::string& folder = {}) {
  std::vector<Case> all;
  for (Operation& each : all_operations(folder)) {
    for (Case& one : each.*cases) all.push_back(std::move(one));
  }
  return all;
}

// The table's sections, as the header has them; large ones take several files.
Operations operations_of_lifecycle(const std::string& folder);
Operations operations_of_transactions();
Operations operations_of_saving();
Operations operations_of_duplicate_tests();
Operations operations_of_message_state();
Operations operations_of_message_state_blocks();
Operations operations_of_deleting();
Operations operations_of_message_queries();
Operations operations_of_history();
Operations operations_of_read_state();
Operations operations_of_conversation_settings();
Operations operations_of_conversation_rows();
Operations operations_of_conversation_list();
Operations operations_of_conversation_list_blocks();
Operations operations_of_counters();
Operations operations_of_unread_sums();
Operations operations_of_statement_layer();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_OPERATION_H_
