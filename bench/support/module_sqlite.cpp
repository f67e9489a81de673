// Exported by every module: see support/store_module.h.

#include "bench/support/linked_sqlite.h"

extern "C" {

void corvan_module_sqlite(corvan_bench::LinkedSqlite& sqlite);

void corvan_module_sqlite(corvan_bench::LinkedSqlite& sqlite) {
  sqlite = corvan_bench::linked_sqlite();
}

}  // extern "C"
