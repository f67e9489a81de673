// The stores that are compared, each with a file and an SQLite of its own.

#ifndef BENCH_ENCRYPTION_CONTENDERS_H_
#define BENCH_ENCRYPTION_CONTENDERS_H_

#include <string>
#include <vector>

#include "bench/encryption/keyed_store.h"
#include "bench/support/report.h"
#include "bench/support/store_module.h"

namespace corvan_bench {

struct ContenderKind {
  const char* name;
  const char* module;
  ModuleSqlite sqlite;
  KeyForm key;
};

// Names of contenders.
inline constexpr const char* kPlain = "plain";
inline constexpr const char* kEncrypted = "encrypted";
inline constexpr const char* kCachedPlain = "cached, plain";
inline constexpr const char* kCachedEncrypted = "cached, encrypted";
inline constexpr const char* kPassphrase = "encrypted, passphrase";
inline constexpr const char* kInstalledPlain = "Debian's SQLite, plain";
inline constexpr const char* kSqlcipherPlain = "SQLCipher, plain";
inline constexpr const char* kSqlcipherEncrypted = "SQLCipher, encrypted";

// The contenders whose modules were built. Throws std::runtime_error if those with the cipher that
// is measured were not.
std::vector<ContenderKind> contender_kinds();
const ContenderKind& kind_named(const std::string& name);

// Prints a table of all contenders.
void print_contenders(Report& report);

class Contender {
 public:
  // Uses the store in `folder`, which ends with "/". Only one store of each kind can be open.
  Contender(const ContenderKind& kind, std::string folder);

  const ContenderKind& kind() const { return kind_; }
  const char* name() const { return kind_.name; }
  std::string file() const { return folder_ + "corvan"; }
  void open() { store_.open(folder_); }
  void close() { store_.close(); }
  KeyedStore& store() { return store_; }

 private:
  const ContenderKind kind_;
  const std::string folder_;
  KeyedStore& store_;
};

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_CONTENDERS_H_
