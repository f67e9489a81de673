#include "bench/encryption/contenders.h"

#include <array>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <utility>

#include "tests/support/temporary_folder.h"

namespace corvan_bench {

namespace {

constexpr const char* kDb = "encryption_db";
constexpr const char* kDbCached = "encryption_db_cached";

// Those with the measured cipher first.
constexpr std::array kKinds = {
    ContenderKind{kPlain, kDb, ModuleSqlite::kCipher, KeyForm::kNone},
    ContenderKind{kEncrypted, kDb, ModuleSqlite::kCipher, KeyForm::kRaw},
    ContenderKind{kCachedPlain, kDbCached, ModuleSqlite::kCipher, KeyForm::kNone},
    ContenderKind{kCachedEncrypted, kDbCached, ModuleSqlite::kCipher, KeyForm::kRaw},
    ContenderKind{kPassphrase, kDb, ModuleSqlite::kCipher, KeyForm::kPassphrase},
    ContenderKind{kInstalledPlain, kDb, ModuleSqlite::kInstalled, KeyForm::kNone},
    ContenderKind{kSqlcipherPlain, kDb, ModuleSqlite::kSqlcipher, KeyForm::kNone},
    ContenderKind{kSqlcipherEncrypted, kDb, ModuleSqlite::kSqlcipher, KeyForm::kRaw},
};

std::string file_of(const ContenderKind& kind) {
  return module_file(kind.module, kind.sqlite);
}

const char* key_text(KeyForm form) {
  switch (form) {
    case KeyForm::kNone:
      return "none";
    case KeyForm::kRaw:
      return "32 bytes";
    case KeyForm::kPassphrase:
      return "a passphrase";
  }
  return "";
}

// Each contender needs a module of its own, because a module contains one store.
std::unique_ptr<KeyedStore> load(const ContenderKind& kind) {
  const corvan_test::TemporaryFolder folder;
  const std::string copy = folder.file("module.so");
  std::filesystem::copy_file(file_of(kind), copy);
  auto* const make = StoreModule(copy, kind.sqlite).maker<KeyedStore*()>();
  return std::unique_ptr<KeyedStore>(make());
}

// Loaded once: a second module would look at the connections of the first one, too, if both use the
// same shared library of SQLite.
KeyedStore& store_of(const ContenderKind& kind) {
  static std::map<std::string, std::unique_ptr<KeyedStore>> stores;
  std::unique_ptr<KeyedStore>& store = stores[kind.name];
  if (store == nullptr) store = load(kind);
  return *store;
}

}  // namespace

std::vector<ContenderKind> contender_kinds() {
  std::vector<ContenderKind> built;
  for (const ContenderKind& kind : kKinds) {
    if (!file_of(kind).empty()) {
      built.push_back(kind);
    } else if (kind.sqlite == ModuleSqlite::kCipher) {
      throw std::runtime_error("no SQLite with a cipher: CORVAN_BENCH_CIPHER names no folder");
    }
  }
  return built;
}

const ContenderKind& kind_named(const std::string& name) {
  for (const ContenderKind& kind : kKinds) {
    if (name == kind.name) return kind;
  }
  throw std::runtime_error("no contender " + name);
}

void print_contenders(Report& report) {
  std::vector<Report::Row> rows;
  for (const ContenderKind& kind : kKinds) {
    const std::string file = file_of(kind);
    rows.push_back({kind.name, key_text(kind.key),
                    file.empty() ? "LEFT OUT: not built"
                                 : "SQLite " + StoreModule(file, kind.sqlite).sqlite().version});
  }
  report.table("Contenders", {"contender", "key", "on"}, rows);
}

Contender::Contender(const ContenderKind& kind, std::string folder)
    : kind_(kind), folder_(std::move(folder)), store_(store_of(kind)) {
  if (kind.key != KeyForm::kNone) store_.set_key(folder_, kind.key);
}

}  // namespace corvan_bench
