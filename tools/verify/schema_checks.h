// Compares a file's tables and indexes with those of a new store.

#ifndef TOOLS_VERIFY_SCHEMA_CHECKS_H_
#define TOOLS_VERIFY_SCHEMA_CHECKS_H_

#include <cstdint>

#include "tools/verify/store_reader.h"

namespace corvan_tool {

// Returns whether the tables have all columns of a new store.
bool check_schema(StoreReader& store);

// Checks that the next message will get an id that was never used. `largest_id` is the largest id
// of a message.
void check_sequence(StoreReader& store, int64_t largest_id);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SCHEMA_CHECKS_H_
