#ifndef TESTS_TWINS_SEQUENCE_H_
#define TESTS_TWINS_SEQUENCE_H_

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/model/model.h"
#include "tests/model/second_connection.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"
#include "tests/twins/disturbances.h"

namespace corvan_test {

// One random sequence of operations on a new store, with disturbances between them, and its
// transcript: for each operation its arguments, result and out-parameters, log lines, the texts
// passed to SQLite, the connection's error text and state; every few operations all rows and what
// another program can lock; at the end the files that are left, and the same after reopening.
//
// The operations take their arguments from a model of the store. The model does not know the
// disturbances, so what it returns is not compared.
class TwinSequence {
 public:
  TwinSequence(std::ostream& out, uint64_t seed);
  TwinSequence(const TwinSequence&) = delete;
  TwinSequence& operator=(const TwinSequence&) = delete;
  ~TwinSequence();

  void run(std::size_t length);

 private:
  void disturb();
  void operate();
  void write_outcome(const std::string& result);
  void write_rows();
  void write_files();
  void write(const std::string& text);  // as one line, without the folder's name

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }

  std::ostream& out_;
  std::mt19937_64 random_;
  TemporaryFolder folder_;
  LogCapture log_;
  Model model_;
  SecondConnection second_;
  Disturbances disturbances_;
};

}  // namespace corvan_test

#endif  // TESTS_TWINS_SEQUENCE_H_
