// Runs the steps of random sequences: operations on messages, conversations, counters, transactions
// and sync times, and steps such as opening and closing the store.

#ifndef TESTS_MODEL_OPERATIONS_H_
#define TESTS_MODEL_OPERATIONS_H_

#include <cstdint>

#include "tests/model/step.h"

namespace corvan_test {

// Runs one operation in the store and in the model. Which one, and with which arguments, follows
// from the step's number and from the rows that the model holds.
void run_operation(Step& step);

// A step's number that names the operation by its place in the lists, modulo their length; `picks`
// chooses the arguments. Larger numbers choose the operation by weight.
uint64_t operation_number(uint8_t place, uint16_t picks);

}  // namespace corvan_test

#endif  // TESTS_MODEL_OPERATIONS_H_
