/// @file
/// The settings of the statement cache, for programs that link `Corvan::db_cached`.
///
/// `Corvan::db_cached` is the same store as `Corvan::db`, with the same header. When an operation
/// finalises a statement, the library keeps the statement; when an operation prepares the same text
/// again, it gets the kept statement, and SQLite has nothing to parse and to plan. Nothing needs to
/// be set or called.

#ifndef ADDONS_STATEMENT_CACHE_STATEMENT_CACHE_H_
#define ADDONS_STATEMENT_CACHE_STATEMENT_CACHE_H_

#include <cstdint>

namespace Corvan {

/// The statements that the library keeps for the open store.
///
/// It keeps statements that begin with select, insert, update, delete, replace, begin, commit or
/// rollback and whose texts have at most 2 KiB. There are at most limit() of them, and they take at
/// most 1 MiB of SQLite's memory; those unused for longest are finalised first. All are dropped
/// when another statement, such as a pragma or a change of the schema, is prepared or finalised,
/// when the step of a statement fails, when SQLite prepares one again, and when the store is
/// closed. To drop a statement is to finalise it, at once if it is idle, otherwise when the
/// operation that uses it does so.
///
/// All members may be called from any thread, but not while the store is being opened or closed.
class StatementCache {
 public:
  static constexpr int32_t kDefaultLimit = 64;   ///< statements
  static constexpr int32_t kLargestLimit = 256;  ///< the largest value for set_limit()

  StatementCache() = delete;

  /// Keeps at most this many statements from now on, until the process ends. Idle statements beyond
  /// the limit are finalised at once. 0 keeps none.
  ///
  /// True if the limit is set. False, with a warning in the log and without a change, if
  /// `statements` is below 0 or above kLargestLimit.
  static bool set_limit(int32_t statements);

  /// The limit in force.
  static int32_t limit();

  /// Finalises all idle statements, for example when the system asks the process to release memory.
  /// Later operations fill the cache again.
  static void clear();
};

}  // namespace Corvan

#endif  // ADDONS_STATEMENT_CACHE_STATEMENT_CACHE_H_
