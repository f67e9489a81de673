#include "bench/support/store_module.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>

namespace corvan_bench {

namespace {

[[noreturn]] void fail() {
  const char* const error = dlerror();
  throw std::runtime_error(error == nullptr ? "the module is incomplete" : error);
}

}  // namespace

std::string module_file(const std::string& name, ModuleSqlite sqlite) {
  const std::string folder =
      sqlite == ModuleSqlite::kBuilt ? CORVAN_MODULES_WITH_BUILT_SQLITE : CORVAN_MODULES;
  const std::string file = folder + name + ".so";
  return !folder.empty() && std::filesystem::exists(file) ? file : "";
}

StoreModule::StoreModule(const std::string& file)
    : handle_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) fail();
}

LinkedSqlite StoreModule::sqlite() const {
  LinkedSqlite sqlite;
  reinterpret_cast<void (*)(LinkedSqlite&)>(function("corvan_module_sqlite"))(sqlite);
  return sqlite;
}

void* StoreModule::function(const char* name) const {
  void* const found = dlsym(handle_, name);
  if (found == nullptr) fail();
  return found;
}

}  // namespace corvan_bench
