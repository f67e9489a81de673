#include "addons/statement_cache/connections.h"

#include <sqlite3.h>

#include <mutex>
#include <new>

#include "addons/statement_cache/statement_cache.h"

namespace Corvan::statement_cache {

namespace {

struct Connection {
  KeptStatements kept;
  Connection* next;
};

// No destructor: a host may close its store when the process ends, after static objects are gone.
std::mutex mutex;             // guards what follows
Connection* first = nullptr;  // nearly always the only one
std::size_t most = StatementCache::kDefaultLimit;

using Lock = std::unique_lock<std::mutex>;

// The place of the pointer to the connection's object; the last, null one if it has none.
Connection** place_of(const sqlite3* db) {
  Connection** place = &first;
  while (*place != nullptr && (*place)->kept.connection() != db) place = &(*place)->next;
  return place;
}

KeptStatements* kept_of(const sqlite3* db) {
  Connection* const found = *place_of(db);
  return found == nullptr ? nullptr : &found->kept;
}

// Finalises the statements that `next` returns, until it returns null. `next` runs under the mutex.
template <typename Next>
void finalize_each(Lock& lock, const Next& next) {
  while (sqlite3_stmt* const stmt = next()) {
    lock.unlock();
    sqlite3_finalize(stmt);
    lock.lock();
  }
}

void finalize_surplus(Lock& lock, const sqlite3* db) {
  finalize_each(lock, [db]() -> sqlite3_stmt* {
    KeptStatements* const kept = kept_of(db);
    return kept == nullptr ? nullptr : kept->take_surplus(most);
  });
}

void finalize_idle(Lock& lock, const sqlite3* db) {
  finalize_each(lock, [db]() -> sqlite3_stmt* {
    KeptStatements* const kept = kept_of(db);
    return kept == nullptr ? nullptr : kept->take_idle();
  });
}

// The first statement that `take` returns for one of the connections; null if there is none.
template <typename Take>
sqlite3_stmt* from_any(const Take& take) {
  sqlite3_stmt* stmt = nullptr;
  for (Connection* each = first; each != nullptr && stmt == nullptr; each = each->next) {
    stmt = take(each->kept);
  }
  return stmt;
}

}  // namespace

sqlite3_stmt* take(const sqlite3* db, std::string_view text) {
  const Lock lock(mutex);
  Connection** const place = place_of(db);
  if (*place != nullptr) return (*place)->kept.take(text);
  *place = new (std::nothrow) Connection{KeptStatements(db), nullptr};
  return nullptr;
}

KeptStatements::Returned give_back(const sqlite3* db, const sqlite3_stmt* stmt) {
  Lock lock(mutex);
  KeptStatements* const kept = kept_of(db);
  if (kept == nullptr) return KeptStatements::Returned::kUnknown;
  const KeptStatements::Returned returned = kept->give_back(stmt);
  finalize_surplus(lock, db);
  return returned;
}

bool add(const sqlite3* db, sqlite3_stmt* stmt, std::size_t bytes) {
  Lock lock(mutex);
  KeptStatements* const kept = kept_of(db);
  if (kept == nullptr || !kept->add(stmt, bytes)) return false;
  finalize_surplus(lock, db);
  return true;
}

void forget(const sqlite3* db, const sqlite3_stmt* stmt) {
  const Lock lock(mutex);
  if (KeptStatements* const kept = kept_of(db)) kept->forget(stmt);
}

void finalize_idle(const sqlite3* db) {
  Lock lock(mutex);
  finalize_idle(lock, db);
}

void close(const sqlite3* db) {
  Lock lock(mutex);
  finalize_idle(lock, db);
  Connection** const place = place_of(db);
  Connection* const closed = *place;
  if (closed == nullptr) return;
  *place = closed->next;
  delete closed;
}

void finalize_all_idle() {
  Lock lock(mutex);
  finalize_each(lock,
                [] { return from_any([](KeptStatements& kept) { return kept.take_idle(); }); });
}

std::size_t limit() {
  const Lock lock(mutex);
  return most;
}

void set_limit(std::size_t statements) {
  Lock lock(mutex);
  most = statements;
  finalize_each(
      lock, [] { return from_any([](KeptStatements& kept) { return kept.take_surplus(most); }); });
}

}  // namespace Corvan::statement_cache
