// Modules that contain the store. Corvan::db and Corvan::db_cached define the same class, and a
// program contains one SQLite, so each other combination of library and SQLite is loaded as a
// module with hidden symbols. All contenders can then take turns in one process.

#ifndef BENCH_SUPPORT_STORE_MODULE_H_
#define BENCH_SUPPORT_STORE_MODULE_H_

#include <string>

#include "bench/support/linked_sqlite.h"

namespace corvan_bench {

enum class ModuleSqlite {
  kInstalled,  // the system's shared library, which the program is linked with, too
  kBuilt,      // compiled from the amalgamation in CORVAN_BENCH_AMALGAMATION, inside the module
  kCipher,     // the same, from CORVAN_BENCH_CIPHER
  kSqlcipher,  // the system's shared library of SQLCipher
};

// The file of a module, such as "floor_db_cached"; empty if it was not built.
std::string module_file(const std::string& name, ModuleSqlite sqlite);

// A loaded module. It stays loaded until the process ends. Throws std::runtime_error if it cannot
// be loaded. With kSqlcipher, it uses the functions of the libraries that it is linked with before
// those of the program, which has another SQLite.
class StoreModule {
 public:
  explicit StoreModule(const std::string& file, ModuleSqlite sqlite = ModuleSqlite::kInstalled);

  // The SQLite that the module uses.
  LinkedSqlite sqlite() const;

  // The module's function `corvan_module_make`.
  template <typename Function>
  Function* maker() const {
    return reinterpret_cast<Function*>(function("corvan_module_make"));
  }

 private:
  void* function(const char* name) const;

  void* handle_;
};

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_STORE_MODULE_H_
