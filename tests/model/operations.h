// The operations that random sequences are made of: all that the store has for messages,
// conversations, counters, transactions and sync times, and what happens around them.

#ifndef TESTS_MODEL_OPERATIONS_H_
#define TESTS_MODEL_OPERATIONS_H_

#include <cstdint>

#include "tests/model/step.h"

namespace corvan_test {

// Runs one operation in the store and in the model. Which one, and with which arguments, follows
// from the step's number and from the rows that the model holds.
void run_operation(Step& step);

// A number that names its operation by the place in their table, counted around its end; `picks`
// chooses the arguments. Other numbers, which are larger, choose the operation by its weight.
uint64_t operation_number(uint8_t place, uint16_t picks);

}  // namespace corvan_test

#endif  // TESTS_MODEL_OPERATIONS_H_
