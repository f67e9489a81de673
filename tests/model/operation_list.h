// The operations that a step can run, with their weights.

#ifndef TESTS_MODEL_OPERATION_LIST_H_
#define TESTS_MODEL_OPERATION_LIST_H_

#include <cstddef>
#include <vector>

#include "tests/model/step.h"

namespace corvan_test {

// An operation's name, and its call, which takes the store or the model.
#define CALL(name) #name, [](auto& target, auto&... args) { return target.name(args...); }

struct ModelOperation {
  std::size_t weight;
  void (*run)(Step& s);
};

std::vector<ModelOperation> operations_on_messages();
std::vector<ModelOperation> operations_on_conversations();

}  // namespace corvan_test

#endif  // TESTS_MODEL_OPERATION_LIST_H_
