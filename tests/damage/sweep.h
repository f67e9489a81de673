// Runs the operations of every section, one after the other, on a file that may be damaged.

#ifndef TESTS_DAMAGE_SWEEP_H_
#define TESTS_DAMAGE_SWEEP_H_

#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace corvan_test {

// What an operation works on: the store, which may be closed, and the file of another, sound store.
struct Subject {
  Corvan::CvDbSingleton& store;
  std::string old_file;
};

struct SweepOperation {
  const char* name;
  std::string (*run)(const Subject& subject);  // what it read, as text; empty for a write
};

// Reads everything that is stored through every reading operation.
const std::vector<SweepOperation>& sweep_reads();

// Saves, changes, copies, deletes and compacts.
const std::vector<SweepOperation>& sweep_writes();

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_SWEEP_H_
