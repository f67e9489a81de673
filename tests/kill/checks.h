// What must be found in a store after the process that worked on it was killed.

#ifndef TESTS_KILL_CHECKS_H_
#define TESTS_KILL_CHECKS_H_

#include <optional>
#include <string>
#include <vector>

#include "tests/kill/planner.h"
#include "tests/model/model.h"

namespace corvan_test {

// The states that may be stored when `next` was not acknowledged: before it, after each of its own
// commits, after it. Without it only the present one. All are closed: what was not committed is
// rolled back.
std::vector<Model> possible_states(const Model& model, const PlannedCall* next);

// The schema of a store that nothing happened to.
std::vector<std::string> whole_schema();

// What was found: the state that is stored, or what is wrong.
struct Finding {
  std::optional<Model> state;
  std::string problem;
  bool between = false;  // it is neither the first of the states nor the last
};

// What a store's file must hold.
struct Expected {
  std::vector<Model> states;        // one of these
  std::vector<std::string> schema;  // this
  bool may_lack_schema = false;     // or, while there are no rows, none: not even a file
};

// Looks at the file as it is, through a connection that is not the store's.
Finding check_with_plain_connection(const std::string& folder, const Expected& expected);

// Opens the store, which marks messages that were being sent, saves one more message, looks through
// a second connection, and closes it. At the most `openings` openings are needed: one that deletes
// a damaged file leaves the store closed. The state found has that message.
Finding check_with_store(const std::string& folder, const Expected& expected, int openings);

// Whether the write-ahead log, where there is one, ends in pages that no commit follows.
bool ends_inside_commit(const std::string& file);

}  // namespace corvan_test

#endif  // TESTS_KILL_CHECKS_H_
