// Fills a store with one of everything that a system could treat differently.

#ifndef TESTS_EXCHANGE_WRITE_H_
#define TESTS_EXCHANGE_WRITE_H_

#include "db/cv_db_singleton.h"

namespace exchange {

// Each call on an empty store leaves the same rows. Throws std::runtime_error if an operation
// fails.
void write_rows(Corvan::CvDbSingleton& store);

}  // namespace exchange

#endif  // TESTS_EXCHANGE_WRITE_H_
