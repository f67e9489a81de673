// The operations that are compared.

#ifndef BENCH_FLOOR_OPERATIONS_H_
#define BENCH_FLOOR_OPERATIONS_H_

#include <memory>
#include <string>
#include <vector>

#include "bench/floor/contenders.h"

namespace corvan_bench {

// One operation with what its calls take and give. A run is set_up(), `calls` times call(), then
// finish(): only the calls are measured. Each contender has operations of its own.
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
  // With `keep` what the calls stored stays; else it may be taken back.
  virtual void finish(Contender&, bool /*keep*/) {}

  // All that the last call gave, as a text; throws std::runtime_error when it is not what was asked
  // for.
  virtual std::string result() const = 0;

  // Makes the records that the last call gave once more.
  virtual void copy_records() const {}

 private:
  std::string name_;
  int calls_;
};

std::vector<std::unique_ptr<Operation>> make_operations();

// One run of `operation`; `measure` is given a function that makes its calls.
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
