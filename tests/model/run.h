// Sequences of operations, run in the store and in the model side by side.

#ifndef TESTS_MODEL_RUN_H_
#define TESTS_MODEL_RUN_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/log_message.h"
#include "db/cv_db_singleton.h"
#include "tests/model/model.h"
#include "tests/model/second_connection.h"
#include "tests/model/step.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

using Sequence = std::vector<uint64_t>;  // one number for each operation

// Where the store and the model first differ.
struct Difference {
  std::size_t index;  // of the operation
  std::string call;
  std::string expected;
  std::string actual;
};
std::string report(const Difference& difference);

// Equal seeds give equal sequences on every machine.
Sequence sequence_of(uint64_t seed, std::size_t length);

// The store, in a temporary folder, and the model.
class SideBySide {
 public:
  SideBySide();
  SideBySide(const SideBySide&) = delete;
  SideBySide& operator=(const SideBySide&) = delete;
  ~SideBySide();

  // Runs the sequence, beginning without rows, and returns the first difference. Compares every
  // result and argument and whether a statement or transaction was left open, and the stored rows
  // after every `interval` operations and at the end. `calls` receives the operations that were
  // run, as text.
  std::optional<Difference> run(const Sequence& sequence, std::size_t interval,
                                std::vector<std::string>* calls = nullptr);

  // Removes operations from a sequence as long as it still has a difference. Describes the rest,
  // operation by operation.
  std::string shrink(Sequence sequence);

  uint64_t operations() const { return operations_; }  // run so far

 private:
  using Parted = std::optional<std::pair<std::string, std::string>>;  // the model, the store

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }
  void start_anew();
  void empty(Model& model);
  Parted compare(const Step& step, const Model& model, bool rows_too);

  std::unique_ptr<TemporaryFolder> folder_;
  std::unique_ptr<SecondConnection> second_;
  LogCapture log_{cvrtc::LS_WARNING};
  uint64_t operations_ = 0;
};

}  // namespace corvan_test

#endif  // TESTS_MODEL_RUN_H_
