#include "addons/statement_cache/cache.h"

#include <sqlite3.h>

#include <array>
#include <functional>
#include <mutex>
#include <new>

#include "addons/statement_cache/statement_cache.h"

namespace Corvan::statement_cache {

namespace {

static_assert(KeptStatements::kMost == StatementCache::kLargestLimit);

struct Cache {
  std::mutex mutex;  // guards what follows
  const sqlite3* db = nullptr;
  KeptStatements kept;       // of this connection
  int others = 0;            // statements between begin_other() and end_other()
  bool after_other = false;  // one of them has existed since the last begin
  std::size_t limit = StatementCache::kDefaultLimit;
};

// Never destroyed: a host may close its store while static objects are destroyed. Not on the heap,
// so that nothing can fail.
Cache& cache() {
  alignas(Cache) static std::array<std::byte, sizeof(Cache)> place;
  static auto* const instance = new (place.data()) Cache;
  return *instance;
}

using Lock = std::unique_lock<std::mutex>;

// Finalises the statements that `next` returns, until it returns null. `next` runs under the mutex.
template <typename Next>
void finalize_each(Lock& lock, const Next& next) {
  while (sqlite3_stmt* const stmt = next()) {
    lock.unlock();
    sqlite3_finalize(stmt);
    lock.lock();
  }
}

void finalize_surplus(Lock& lock) {
  finalize_each(lock, []() -> sqlite3_stmt* {
    return cache().kept.size() > cache().limit ? cache().kept.take_oldest() : nullptr;
  });
}

// Does not finalise `spared`.
void drop_all(Lock& lock, const sqlite3_stmt* spared = nullptr) {
  cache().kept.forget_used();
  finalize_each(lock, [spared] { return cache().kept.take_oldest(spared); });
}

// What a finalised statement of this kind means for the others. A rollback, also one to a
// savepoint, may have undone a change of the schema. After a begin, nothing that happened before
// can be undone.
void follow(Lock& lock, const sqlite3_stmt* ended, TextKind kind) {
  if (kind == TextKind::kBegin) cache().after_other = false;
  if (kind == TextKind::kRollback && cache().after_other) drop_all(lock, ended);
}

// Makes this the store's connection.
void use(Lock& lock, const sqlite3* db) {
  if (cache().db == db) return;
  drop_all(lock);
  cache().db = db;
  cache().others = 0;
}

}  // namespace

sqlite3_stmt* take(const sqlite3* db, std::string_view text) {
  const std::size_t hash = hash_of(text);
  Lock lock(cache().mutex);
  use(lock, db);
  return cache().others == 0 ? cache().kept.take(text, hash) : nullptr;
}

void keep(const sqlite3* db, const Candidate& statement) {
  Lock lock(cache().mutex);
  use(lock, db);
  if (cache().others > 0) return;
  KeptStatements& kept = cache().kept;
  finalize_each(lock, [&] {
    return kept.has_room(statement.bytes, cache().limit) ? nullptr : kept.take_oldest();
  });
  if (kept.has_room(statement.bytes, cache().limit)) kept.enter(statement);
}

KeptStatements::Returned give_back(const sqlite3* db, const sqlite3_stmt* stmt) {
  Lock lock(cache().mutex);
  if (cache().db != db) return KeptStatements::Returned::kUnknown;
  TextKind kind = TextKind::kOther;
  const KeptStatements::Returned returned = cache().kept.give_back(stmt, kind);
  if (returned == KeptStatements::Returned::kIdle) follow(lock, stmt, kind);
  finalize_surplus(lock);
  return returned;
}

void drop_all(const sqlite3* db) {
  Lock lock(cache().mutex);
  if (cache().db == db) drop_all(lock);
}

void begin_other(const sqlite3* db) {
  Lock lock(cache().mutex);
  use(lock, db);
  ++cache().others;
  cache().after_other = true;
  drop_all(lock);
}

void end_other(const sqlite3* db) {
  Lock lock(cache().mutex);
  if (cache().db != db) return;
  --cache().others;
  drop_all(lock);
}

void close(const sqlite3* db) {
  Lock lock(cache().mutex);
  if (cache().db == db) use(lock, nullptr);
}

void finalize_idle() {
  Lock lock(cache().mutex);
  finalize_each(lock, [] { return cache().kept.take_oldest(); });
}

std::size_t hash_of(std::string_view text) {
  return std::hash<std::string_view>()(text);
}

std::size_t limit() {
  const Lock lock(cache().mutex);
  return cache().limit;
}

void set_limit(std::size_t statements) {
  Lock lock(cache().mutex);
  cache().limit = statements;
  finalize_surplus(lock);
}

}  // namespace Corvan::statement_cache
