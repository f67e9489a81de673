// Runs all operations on the files of a folder and checks what happens against the store's promise:
// a file is deleted only if SQLite reports damage while it prepares a statement.

#ifndef TESTS_DAMAGE_EXAMINATION_H_
#define TESTS_DAMAGE_EXAMINATION_H_

#include <string>
#include <vector>

#include "tests/damage/child.h"
#include "tests/damage/files.h"

namespace corvan_test {

// What each operation reads from a sound store.
using Answers = std::vector<std::string>;

// Opens, reads and closes the store of these files.
Answers answers_of(const Files& files);

// Whether a log line says that SQLite, while preparing, found that a file is damaged or not a
// database.
bool tells_of_damage_at_prepare(const std::string& line);

struct Expected {
  Answers answers;         // empty: reads are not compared
  bool can_unlink = true;  // the folder lets the store delete a file
};

// Works on the folder's file "corvan" and closes it at the end. There is one complaint per broken
// promise.
void examine(const std::string& folder, const Expected& expected, Outcome& outcome);

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_EXAMINATION_H_
