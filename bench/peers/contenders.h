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
  bool has_thread = false;  // also writes from its own thread
};

// The contenders that were built, the project's own store first.
std::vector<Contender> contenders();

// The names of the peers that were not built.
std::vector<std::string> left_out();

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
