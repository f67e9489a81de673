#ifndef ADDONS_STATEMENT_CACHE_CONNECTIONS_H_
#define ADDONS_STATEMENT_CACHE_CONNECTIONS_H_

#include <cstddef>
#include <string_view>

#include "addons/statement_cache/kept_statements.h"

// The kept statements of all connections, behind one mutex. The mutex is never held while SQLite is
// called: SQLite has a mutex for each connection, and holds it while it calls functions of the
// host, which may use the store.
namespace Corvan::statement_cache {

// The idle statement of the connection with this text, which is now in use; null if there is none.
// From now on until close(), statements of the connection are kept.
sqlite3_stmt* take(const sqlite3* db, std::string_view text);

// Makes a statement idle that take() has handed out. kUnknown, too, if no statements of the
// connection are kept.
KeptStatements::Returned give_back(const sqlite3* db, const sqlite3_stmt* stmt);

// Keeps a statement, which needs `bytes` of memory, as idle. False if it is not kept, because no
// statements of the connection are, or memory runs out: then it is the caller's to finalise.
bool add(const sqlite3* db, sqlite3_stmt* stmt, std::size_t bytes);

// Keeps this statement no longer; it is the caller's to finalise.
void forget(const sqlite3* db, const sqlite3_stmt* stmt);

// Finalises all idle statements of the connection.
void finalize_idle(const sqlite3* db);

// As finalize_idle(); from now on, no statements of the connection are kept.
void close(const sqlite3* db);

// Finalises all idle statements of all connections.
void finalize_all_idle();

// The most statements that are kept for one connection. A new value also applies to those that are
// kept already.
std::size_t limit();
void set_limit(std::size_t statements);

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_CONNECTIONS_H_
