#ifndef ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_
#define ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace Corvan::statement_cache {

// The kept statements of one connection: those that are idle, and those that were kept and are in
// use now. No member calls SQLite except to read a statement's text, which takes no lock, so an
// object can be used under a mutex. A statement that leaves the object is the caller's to finalise.
class KeptStatements {
 public:
  explicit KeptStatements(const sqlite3* db) : db_(db) {}

  const sqlite3* connection() const { return db_; }

  // The idle statement with this text, which is now in use; null if there is none.
  sqlite3_stmt* take(std::string_view text);

  enum class Returned {
    kIdle,         // it was in use, and is idle now
    kAlreadyIdle,  // it was idle already
    kUnknown,      // it is not in this object
  };
  // Makes a statement idle that take() has handed out.
  Returned give_back(const sqlite3_stmt* stmt);

  // Adds a statement as idle; `bytes` is its memory. False, without a change, if memory runs out.
  bool add(sqlite3_stmt* stmt, std::size_t bytes);

  // Forgets a statement, if it is in this object.
  void forget(const sqlite3_stmt* stmt);

  // Removes and returns the idle statement that has not been used for longest, if the statements
  // are more than `limit` or need too much memory; null otherwise.
  sqlite3_stmt* take_surplus(std::size_t limit);

  // Removes and returns an idle statement; null if there is none.
  sqlite3_stmt* take_idle();

 private:
  struct Entry {
    std::size_t hash;  // of the text
    sqlite3_stmt* stmt;
    std::size_t bytes;
    uint64_t last_use;
    bool idle;
  };
  using Entries = std::vector<Entry>;

  Entries::iterator find(const sqlite3_stmt* stmt);
  Entries::iterator longest_unused();
  sqlite3_stmt* remove(Entries::iterator entry);

  const sqlite3* db_;
  Entries entries_;  // in no order; a search through so few takes less time than a map's
  std::size_t bytes_ = 0;
  uint64_t uses_ = 0;
};

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_
