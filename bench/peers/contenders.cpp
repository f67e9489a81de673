#include "bench/peers/contenders.h"

#include <sqlite3.h>

namespace corvan_bench {

namespace {

[[maybe_unused]] constexpr const char* kDraft =
    "WAL, synchronous=FULL, checkpoint after 1,000 pages, statements kept, "
    "one index, on conversation and time";
[[maybe_unused]] constexpr const char* kIndexed =
    "the same with three more indexes: server uid, client uid, order of the list";

std::string on_sqlite(const std::string& wrapper) {
  return wrapper + " on SQLite " + sqlite3_libversion();
}

}  // namespace

std::vector<Contender> contenders() {
  std::vector<Contender> all;
  all.push_back({"Corvan", on_sqlite("the project"),
                 "WAL, synchronous=FULL, checkpoint after 5,000 pages", make_corvan_store});
#if defined(CORVAN_PEER_SQLITECPP)
  all.push_back({"SQLiteCpp draft", on_sqlite("SQLiteCpp " + sqlitecpp_version()), kDraft,
                 [] { return make_sqlitecpp_store(DraftIndexes::kFirstDraft); }});
  all.push_back({"SQLiteCpp indexed", on_sqlite("SQLiteCpp " + sqlitecpp_version()), kIndexed,
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
                 make_leveldb_store, true});
#endif
  return all;
}

std::vector<std::string> left_out() {
  std::vector<std::string> names;
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

}  // namespace corvan_bench
