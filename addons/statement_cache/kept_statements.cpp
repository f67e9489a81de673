#include "addons/statement_cache/kept_statements.h"

#include <sqlite3.h>

#include <algorithm>
#include <functional>
#include <new>

namespace Corvan::statement_cache {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1024} * 1024;

std::size_t hash_of(std::string_view text) {
  return std::hash<std::string_view>()(text);
}

}  // namespace

sqlite3_stmt* KeptStatements::take(std::string_view text) {
  const std::size_t hash = hash_of(text);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [=](const Entry& entry) {
    return entry.hash == hash && entry.idle && text == sqlite3_sql(entry.stmt);
  });
  if (found == entries_.end()) return nullptr;
  found->idle = false;
  return found->stmt;
}

KeptStatements::Returned KeptStatements::give_back(const sqlite3_stmt* stmt) {
  const auto found = find(stmt);
  if (found == entries_.end()) return Returned::kUnknown;
  if (found->idle) return Returned::kAlreadyIdle;
  found->idle = true;
  found->last_use = ++uses_;
  return Returned::kIdle;
}

bool KeptStatements::add(sqlite3_stmt* stmt, std::size_t bytes) {
  try {
    entries_.push_back({hash_of(sqlite3_sql(stmt)), stmt, bytes, ++uses_, true});
  } catch (const std::bad_alloc&) {
    return false;
  }
  bytes_ += bytes;
  return true;
}

void KeptStatements::forget(const sqlite3_stmt* stmt) {
  const auto found = find(stmt);
  if (found != entries_.end()) remove(found);
}

sqlite3_stmt* KeptStatements::take_surplus(std::size_t limit) {
  if (entries_.size() <= limit && bytes_ <= kMostBytes) return nullptr;
  return remove(longest_unused());
}

sqlite3_stmt* KeptStatements::take_idle() {
  return remove(longest_unused());
}

KeptStatements::Entries::iterator KeptStatements::find(const sqlite3_stmt* stmt) {
  return std::find_if(entries_.begin(), entries_.end(),
                      [stmt](const Entry& entry) { return entry.stmt == stmt; });
}

KeptStatements::Entries::iterator KeptStatements::longest_unused() {
  auto oldest = entries_.end();
  for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
    if (!entry->idle) continue;
    if (oldest == entries_.end() || entry->last_use < oldest->last_use) oldest = entry;
  }
  return oldest;
}

sqlite3_stmt* KeptStatements::remove(Entries::iterator entry) {
  if (entry == entries_.end()) return nullptr;
  sqlite3_stmt* const stmt = entry->stmt;
  bytes_ -= entry->bytes;
  *entry = entries_.back();
  entries_.pop_back();
  return stmt;
}

}  // namespace Corvan::statement_cache
