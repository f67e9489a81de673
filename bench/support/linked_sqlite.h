#ifndef BENCH_SUPPORT_LINKED_SQLITE_H_
#define BENCH_SUPPORT_LINKED_SQLITE_H_

#include <string>

namespace corvan_bench {

// Functions that are called for the connections of a watched SQLite; each may be null.
struct SqliteWatcher {
  void (*on_statement)(const char* text) = nullptr;  // a statement begins to run
  void (*on_commit)() = nullptr;                     // a transaction that is not empty commits
};

// An SQLite of the process. There can be several: a module may contain its own.
struct LinkedSqlite {
  std::string version;
  std::string options;  // compile options, separated by blanks

  // Calls the watcher's functions for all connections that are opened from now on; null stops it.
  // The watcher must exist as long as these connections.
  void (*watch)(const SqliteWatcher* watcher) = nullptr;
};

// The SQLite that the caller's program or module is linked with.
LinkedSqlite linked_sqlite();

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_LINKED_SQLITE_H_
