#ifndef ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_
#define ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "addons/statement_cache/kept_text.h"

struct sqlite3_stmt;

namespace Corvan::statement_cache {

// A statement that can be kept.
struct Candidate {
  sqlite3_stmt* stmt;
  std::size_t hash;   // of its text
  std::size_t bytes;  // its memory
  TextKind kind;
};

// The statements of one connection that are kept: those that are idle, and those in use that will
// be idle again. No member allocates memory, or calls SQLite except to read a statement's text,
// which takes no lock. A statement that leaves the object is the caller's to finalise.
class KeptStatements {
 public:
  static constexpr std::size_t kMost = 256;

  // The idle statement with this text, which is now in use; null if there is none.
  sqlite3_stmt* take(std::string_view text, std::size_t hash);

  // Whether a statement of this size can be entered without exceeding `limit` statements, which is
  // at most kMost, or the memory for all.
  bool has_room(std::size_t bytes, std::size_t limit) const;

  // Enters a statement in use. There must be room for it.
  void enter(const Candidate& statement);

  enum class Returned {
    kIdle,         // it was in use, and is idle now
    kAlreadyIdle,  // it was idle already
    kUnknown,      // it is not in this object
  };
  // Makes a statement in use idle. `kind` receives its kind, unless it is unknown.
  Returned give_back(const sqlite3_stmt* stmt, TextKind& kind);

  // Removes and returns the idle statement that has not been used for longest, but never `spared`;
  // null if there is none.
  sqlite3_stmt* take_oldest(const sqlite3_stmt* spared = nullptr);

  // Removes the statements in use.
  void forget_used();

  std::size_t size() const { return size_; }

 private:
  struct Entry {
    Candidate statement;
    uint64_t last_use;
    bool idle;
  };

  Entry* begin() { return entries_.data(); }
  Entry* end() { return entries_.data() + size_; }
  void remove(Entry* entry);

  std::array<Entry, kMost> entries_{};  // the first size_, in no order
  std::size_t size_ = 0;
  std::size_t bytes_ = 0;
  uint64_t uses_ = 0;
};

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_KEPT_STATEMENTS_H_
