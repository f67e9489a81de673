// The list of the contenders. Each peer is there only when its library was found.

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
  std::string settings;  // how it is used
  std::function<std::unique_ptr<Store>()> make;
  bool has_thread = false;  // writes from a thread of its own, too
};

// Those that were built, the project's own store first.
std::vector<Contender> contenders();

// The names of those that were not.
std::vector<std::string> left_out();

// The contenders' stores; each is defined only when its library was found.
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
