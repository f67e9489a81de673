#ifndef ADDONS_STATEMENT_CACHE_CACHE_H_
#define ADDONS_STATEMENT_CACHE_CACHE_H_

#include <cstddef>
#include <string_view>

#include "addons/statement_cache/kept_statements.h"

struct sqlite3;

// The kept statements of the store's connection, behind one mutex. The mutex is never held while
// SQLite is called: SQLite has a mutex for each connection, and holds it while it calls functions
// of the host, which may use the store.
//
// The store has one connection at a time. The first statement of another connection ends the cache
// of the one before.
namespace Corvan::statement_cache {

// The idle statement of the connection with this text, which is now in use; null if there is none.
sqlite3_stmt* take(const sqlite3* db, std::string_view text);

// Keeps a statement of the connection, which is in use, if there is room for it.
void keep(const sqlite3* db, const Candidate& statement);

// Makes a statement idle that is kept and in use. A rollback that may undo a change of the schema
// drops the others.
KeptStatements::Returned give_back(const sqlite3* db, const sqlite3_stmt* stmt);

// Drops all statements of the connection: finalises those that are idle, and keeps those in use no
// longer.
void drop_all(const sqlite3* db);

// Between these calls a statement exists that may change how others are prepared, or whether they
// can be. Each call drops all statements; between them, none are kept or taken. Several may exist.
void begin_other(const sqlite3* db);
void end_other(const sqlite3* db);

// Drops all statements, before the connection is closed.
void close(const sqlite3* db);

// Finalises all idle statements.
void finalize_idle();

std::size_t hash_of(std::string_view text);

// The most statements that are kept. A new value also applies to those that are kept already.
std::size_t limit();
void set_limit(std::size_t statements);

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_CACHE_H_
