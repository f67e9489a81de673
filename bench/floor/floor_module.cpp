// The store as a contender of the floor benchmarks, in a module: see support/store_module.h.

#include "bench/floor/contenders.h"

extern "C" {

corvan_bench::Contender* corvan_module_make(const std::string& folder);

corvan_bench::Contender* corvan_module_make(const std::string& folder) {
  return corvan_bench::make_store_contender(folder).release();
}

}  // extern "C"
