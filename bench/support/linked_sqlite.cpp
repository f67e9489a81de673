#include "bench/support/linked_sqlite.h"

#include <sqlite3.h>

namespace corvan_bench {

namespace {

const SqliteWatcher* watcher = nullptr;

int note_statement(unsigned, void* context, void*, void* text) {
  static_cast<const SqliteWatcher*>(context)->on_statement(static_cast<const char*>(text));
  return 0;
}

int note_commit(void* context) {
  static_cast<const SqliteWatcher*>(context)->on_commit();
  return 0;
}

int watch_connection(sqlite3* db, char** /*error*/, const void* /*api*/) {
  // SQLite does not change what its contexts point to.
  auto* const context = const_cast<SqliteWatcher*>(watcher);
  if (watcher->on_statement != nullptr) {
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, note_statement, context);
  }
  if (watcher->on_commit != nullptr) sqlite3_commit_hook(db, note_commit, context);
  return SQLITE_OK;
}

void watch(const SqliteWatcher* new_watcher) {
  auto* const entry = reinterpret_cast<void (*)()>(&watch_connection);
  watcher = new_watcher;
  if (watcher != nullptr) {
    sqlite3_auto_extension(entry);
  } else {
    sqlite3_cancel_auto_extension(entry);
  }
}

std::string options() {
  std::string all;
  for (int i = 0; sqlite3_compileoption_get(i) != nullptr; ++i) {
    if (!all.empty()) all += ' ';
    all += sqlite3_compileoption_get(i);
  }
  return all;
}

}  // namespace

LinkedSqlite linked_sqlite() {
  return {sqlite3_libversion(), options(), &watch};
}

}  // namespace corvan_bench
