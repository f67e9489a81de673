#ifndef TESTS_ADDONS_STATEMENT_CACHE_PREPARE_COUNT_H_
#define TESTS_ADDONS_STATEMENT_CACHE_PREPARE_COUNT_H_

namespace corvan_test {

// How many statements SQLite has prepared for the store since the last call, successfully or not.
int take_prepares();

}  // namespace corvan_test

#endif  // TESTS_ADDONS_STATEMENT_CACHE_PREPARE_COUNT_H_
