// The list of contenders. A peer is included only if its library was found.

#ifndef BENCH_PEERS_CONTENDERS_H_
#define BENCH_PEERS_CONTENDERS_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/peers/peer.h"

namespace corvan_bench {

struct Contender {
  std::string name;
  std::string library;   // with its version
  std::string settings;  // as shown in the table
  std::function<std::unique_ptr<Store>()> make;
  enum Kind { kOurs, kPeer, kPeerWithThread } kind = kPeer;  // the thread writes, too
};

// Names of contenders that are compared with each other.
inline constexpr const char* kCorvanCached = "Corvan cached";
inline constexpr const char* kSqliteCppIndexed = "SQLiteCpp indexed";

// The contenders that were built, the project's own first: the store, then the same in modules.
std::vector<Contender> contenders();

// The names of the contenders that were not built.
std::vector<std::string> left_out();

// Counts the commits of every SQLite in the process, with count_commit().
void count_sqlite_commits();

// Create the contenders' stores. Each is defined only if its library was found.
enum class DraftIndexes { kFirstDraft, kAllNeeded };
std::unique_ptr<Store> make_corvan_store();
std::unique_ptr<Store> make_sqlitecpp_store(DraftIndexes indexes);
std::unique_ptr<Store> make_soci_store(DraftIndexes indexes);
std::unique_ptr<Store> make_lmdb_store();
std::unique_ptr<Store> make_leveldb_store();

// Versions, such as "1.23".
std::string sqlitecpp_version();
std::string soci_version();
std::string lmdb_version();
std::string leveldb_version();

}  // namespace corvan_bench

#endif  // BENCH_PEERS_CONTENDERS_H_
