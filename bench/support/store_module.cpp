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

std::string folder_of(ModuleSqlite sqlite) {
  switch (sqlite) {
    case ModuleSqlite::kInstalled:
      return CORVAN_MODULES;
    case ModuleSqlite::kBuilt:
      return CORVAN_MODULES_WITH_BUILT_SQLITE;
    case ModuleSqlite::kCipher:
      return CORVAN_MODULES_WITH_CIPHER;
    case ModuleSqlite::kSqlcipher:
      return CORVAN_MODULES_WITH_SQLCIPHER;
  }
  return "";
}

int flags_for(ModuleSqlite sqlite) {
  const int flags = RTLD_NOW | RTLD_LOCAL;
  return sqlite == ModuleSqlite::kSqlcipher ? flags | RTLD_DEEPBIND : flags;
}

}  // namespace

std::string module_file(const std::string& name, ModuleSqlite sqlite) {
  const std::string folder = folder_of(sqlite);
  const std::string file = folder + name + ".so";
  return !folder.empty() && std::filesystem::exists(file) ? file : "";
}

StoreModule::StoreModule(const std::string& file, ModuleSqlite sqlite)
    : handle_(dlopen(file.c_str(), flags_for(sqlite))) {
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
