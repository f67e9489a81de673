// The measured operations.

#ifndef BENCH_FLOOR_OPERATIONS_H_
#define BENCH_FLOOR_OPERATIONS_H_

#include <memory>
#include <string>
#include <vector>

#include "bench/floor/contenders.h"

namespace corvan_bench {

// One operation with the arguments and results of its calls. A run is set_up(), then call() `calls`
// times, then finish(); only the calls are measured. Each contender has its own objects.
class Operation {
 public:
  Operation(std::string name, int calls) : name_(std::move(name)), calls_(calls) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  virtual ~Operation() = default;

  const std::string& name() const { return name_; }
  int calls() const { return calls_; }

  virtual void set_up(Contender&) {}
  virtual void call(Contender& contender, int number) = 0;
  // If `keep` is false, changes of the calls may be rolled back.
  virtual void finish(Contender&, bool /*keep*/) {}

  // The complete result of the last call as text. Throws std::runtime_error if it is wrong.
  virtual std::string result() const = 0;

  // Creates the records of the last call again, to count their allocations.
  virtual void copy_records() const {}

 private:
  std::string name_;
  int calls_;
};

// Names of operations for which some bounds are not set.
inline constexpr const char* kBatchSave = "save a batch of 1,000";
inline constexpr const char* kBatchDeletion = "delete 20 messages";
inline constexpr const char* kHistoryPage = "read 20 messages";

std::vector<std::unique_ptr<Operation>> make_operations();

// Runs `operation` once. `measure` receives a function that makes the calls.
template <typename Measure>
void run_operation(Operation& operation, Contender& contender, bool keep, Measure&& measure) {
  operation.set_up(contender);
  measure([&operation, &contender] {
    for (int i = 0; i < operation.calls(); ++i) operation.call(contender, i);
  });
  operation.finish(contender, keep);
}

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_OPERATIONS_H_
