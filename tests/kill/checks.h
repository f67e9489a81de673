// Checks of a store after the process that worked on it was killed.

#ifndef TESTS_KILL_CHECKS_H_
#define TESTS_KILL_CHECKS_H_

#include <optional>
#include <string>
#include <vector>

#include "tests/kill/planner.h"
#include "tests/model/model.h"

namespace corvan_test {

// The states that may be stored if `next` was not acknowledged: before it, after each of its own
// commits, and after it. If `next` is null, only the present state. All are closed, so uncommitted
// changes are rolled back.
std::vector<Model> possible_states(const Model& model, const PlannedCall* next);

// The schema of a new store.
std::vector<std::string> whole_schema();

// The result of a check: the state that is stored, or what is wrong.
struct Finding {
  std::optional<Model> state;
  std::string problem;
  bool between = false;  // the state is neither the first nor the last
};

// What a store's file must contain.
struct Expected {
  std::vector<Model> states;        // one of these
  std::vector<std::string> schema;  // this
  bool may_lack_schema = false;     // without rows the schema, and the file, may be missing
};

// Checks the file as it is, through a separate connection.
Finding check_with_plain_connection(const std::string& folder, const Expected& expected);

// Opens the store, which marks messages being sent as failed, saves one more message, checks
// through a second connection, and closes the store. Opens at most `openings` times: an opening
// that deletes a damaged file leaves the store closed. The state found includes that message.
Finding check_with_store(const std::string& folder, const Expected& expected, int openings);

// Whether there is a write-ahead log that ends in pages without a commit.
bool ends_inside_commit(const std::string& file);

}  // namespace corvan_test

#endif  // TESTS_KILL_CHECKS_H_
