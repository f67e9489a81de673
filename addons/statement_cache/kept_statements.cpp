#include "addons/statement_cache/kept_statements.h"

#include <sqlite3.h>

#include <algorithm>

namespace Corvan::statement_cache {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1024} * 1024;

}  // namespace

sqlite3_stmt* KeptStatements::take(std::string_view text, std::size_t hash) {
  Entry* const found = std::find_if(begin(), end(), [=](const Entry& entry) {
    return entry.statement.hash == hash && entry.idle && text == sqlite3_sql(entry.statement.stmt);
  });
  if (found == end()) return nullptr;
  found->idle = false;
  return found->statement.stmt;
}

bool KeptStatements::has_room(std::size_t bytes, std::size_t limit) const {
  return size_ < limit && bytes_ + bytes <= kMostBytes;
}

void KeptStatements::enter(const Candidate& statement) {
  entries_[size_++] = {statement, 0, false};
  bytes_ += statement.bytes;
}

KeptStatements::Returned KeptStatements::give_back(const sqlite3_stmt* stmt, TextKind& kind) {
  Entry* const found = std::find_if(
      begin(), end(), [stmt](const Entry& entry) { return entry.statement.stmt == stmt; });
  if (found == end()) return Returned::kUnknown;
  kind = found->statement.kind;
  if (found->idle) return Returned::kAlreadyIdle;
  found->idle = true;
  found->last_use = ++uses_;
  return Returned::kIdle;
}

sqlite3_stmt* KeptStatements::take_oldest(const sqlite3_stmt* spared) {
  Entry* oldest = nullptr;
  for (Entry& entry : *this) {
    if (!entry.idle || entry.statement.stmt == spared) continue;
    if (oldest == nullptr || entry.last_use < oldest->last_use) oldest = &entry;
  }
  if (oldest == nullptr) return nullptr;
  sqlite3_stmt* const stmt = oldest->statement.stmt;
  remove(oldest);
  return stmt;
}

void KeptStatements::forget_used() {
  for (std::size_t i = size_; i > 0; --i) {
    if (!entries_[i - 1].idle) remove(&entries_[i - 1]);
  }
}

void KeptStatements::remove(Entry* entry) {
  bytes_ -= entry->statement.bytes;
  *entry = entries_[--size_];
}

}  // namespace Corvan::statement_cache
