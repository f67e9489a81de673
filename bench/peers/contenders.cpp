#include "bench/peers/contenders.h"

#include <array>

#include "bench/peers/io_counts.h"
#include "bench/support/store_module.h"

namespace corvan_bench {

namespace {

[[maybe_unused]] constexpr const char* kDraft =
    "WAL, synchronous=FULL, checkpoint after 1,000 pages, statements kept, "
    "one index, on conversation and time";
[[maybe_unused]] constexpr const char* kIndexed =
    "the same with three more indexes: server uid, client uid, order of the list";

std::string on_sqlite(const std::string& wrapper) {
  return wrapper + " on SQLite " + linked_sqlite().version;
}

// The project's store in a module.
struct InModule {
  const char* contender;
  const char* library;
  const char* module;
  ModuleSqlite sqlite;

  std::string file() const { return module_file(module, sqlite); }
};

constexpr std::array kInModules = {
    InModule{kCorvanCached, "Corvan::db_cached", "peers_db_cached", ModuleSqlite::kInstalled},
    InModule{"Corvan, built SQLite", "Corvan::db", "peers_db", ModuleSqlite::kBuilt},
    InModule{"Corvan cached, built SQLite", "Corvan::db_cached", "peers_db_cached",
             ModuleSqlite::kBuilt},
};

constexpr const char* kOwnSettings = "WAL, synchronous=FULL, checkpoint after 5,000 pages";

Contender from_module(const InModule& what) {
  const StoreModule module(what.file());
  const char* const built = what.sqlite == ModuleSqlite::kBuilt ? ", built" : "";
  return {what.contender,
          std::string(what.library) + " on SQLite " + module.sqlite().version + built, kOwnSettings,
          [make = module.maker<Store*()>()] { return std::unique_ptr<Store>(make()); },
          Contender::kOurs};
}

void add_own(std::vector<Contender>& all) {
  all.push_back(
      {"Corvan", on_sqlite("Corvan::db"), kOwnSettings, make_corvan_store, Contender::kOurs});
  for (const InModule& each : kInModules) {
    if (!each.file().empty()) all.push_back(from_module(each));
  }
}

}  // namespace

std::vector<Contender> contenders() {
  std::vector<Contender> all;
  add_own(all);
#if defined(CORVAN_PEER_SQLITECPP)
  all.push_back({"SQLiteCpp draft", on_sqlite("SQLiteCpp " + sqlitecpp_version()), kDraft,
                 [] { return make_sqlitecpp_store(DraftIndexes::kFirstDraft); }});
  all.push_back({kSqliteCppIndexed, on_sqlite("SQLiteCpp " + sqlitecpp_version()), kIndexed,
                 [] { return make_sqlitecpp_store(DraftIndexes::kAllNeeded); }});
#endif
#if defined(CORVAN_PEER_SOCI)
  all.push_back({"SOCI draft", on_sqlite("SOCI " + soci_version()), kDraft,
                 [] { return make_soci_store(DraftIndexes::kFirstDraft); }});
  all.push_back({"SOCI indexed", on_sqlite("SOCI " + soci_version()), kIndexed,
                 [] { return make_soci_store(DraftIndexes::kAllNeeded); }});
#endif
#if defined(CORVAN_PEER_LMDB)
  all.push_back({"LMDB", "LMDB " + lmdb_version(), "hand-made keys, each commit synced (no flags)",
                 make_lmdb_store});
#endif
#if defined(CORVAN_PEER_LEVELDB)
  all.push_back({"LevelDB", "LevelDB " + leveldb_version(),
                 "hand-made keys, one batch a commit, WriteOptions.sync, Bloom filter of 10 bits",
                 make_leveldb_store, Contender::kPeerWithThread});
#endif
  return all;
}

std::vector<std::string> left_out() {
  std::vector<std::string> names;
  for (const InModule& each : kInModules) {
    if (each.file().empty()) names.emplace_back(each.contender);
  }
#if !defined(CORVAN_PEER_SQLITECPP)
  names.push_back("SQLiteCpp");
#endif
#if !defined(CORVAN_PEER_SOCI)
  names.push_back("SOCI");
#endif
#if !defined(CORVAN_PEER_LMDB)
  names.push_back("LMDB");
#endif
#if !defined(CORVAN_PEER_LEVELDB)
  names.push_back("LevelDB");
#endif
  return names;
}

void count_sqlite_commits() {
  static constexpr SqliteWatcher kWatcher = {nullptr, &count_commit};
  linked_sqlite().watch(&kWatcher);
  for (const InModule& each : kInModules) {
    if (!each.file().empty()) StoreModule(each.file()).sqlite().watch(&kWatcher);
  }
}

}  // namespace corvan_bench
