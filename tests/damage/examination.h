// Runs all operations on the files of a folder, and holds what happens against what the store
// promises: only damage met while a statement is being prepared deletes a file.

#ifndef TESTS_DAMAGE_EXAMINATION_H_
#define TESTS_DAMAGE_EXAMINATION_H_

#include <string>
#include <vector>

#include "tests/damage/child.h"
#include "tests/damage/files.h"

namespace corvan_test {

// What is read from a sound store, operation by operation.
using Answers = std::vector<std::string>;

// Opens, reads and closes the store of these files.
Answers answers_of(const Files& files);

// Whether a log line tells that SQLite called a file damaged, or no database, while preparing.
bool tells_of_damage_at_prepare(const std::string& line);

struct Expected {
  Answers answers;         // none: what is read is not compared
  bool can_unlink = true;  // the folder lets the store delete a file
};

// Works on the folder's file "corvan", which is closed at the end. A complaint tells of each broken
// promise.
void examine(const std::string& folder, const Expected& expected, Outcome& outcome);

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_EXAMINATION_H_
