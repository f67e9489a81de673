// The store as a contender of the peers benchmark, in a module: see support/store_module.h.

#include "bench/peers/contenders.h"

extern "C" {

corvan_bench::Store* corvan_module_make();

corvan_bench::Store* corvan_module_make() {
  return corvan_bench::make_corvan_store().release();
}

}  // extern "C"
