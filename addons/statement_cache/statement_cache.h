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

/// The statements that the library keeps, for all connections of the process.
///
/// Kept are statements that begin with select, insert, update, delete, replace, begin or commit,
/// with texts of at most 2 KiB. The statements of one connection are at most limit(), and take at
/// most 1 MiB of SQLite's memory; those unused for longest are finalised first. A statement of
/// another kind, such as a pragma, a change of the schema or a rollback, finalises all that are
/// kept, and so does a statement that fails or that SQLite had to prepare again. Closing the store
/// finalises them too.
///
/// All members may be called from any thread, but not while the store is being opened or closed.
class StatementCache {
 public:
  static constexpr int32_t kDefaultLimit = 64;   ///< statements for one connection
  static constexpr int32_t kLargestLimit = 256;  ///< the largest value for set_limit()

  StatementCache() = delete;

  /// Keeps at most this many statements for one connection, from now on and until the process ends.
  /// Statements beyond the limit are finalised at once. 0 keeps none: the store then behaves
  /// exactly as Corvan::db.
  ///
  /// True if the limit is set. False, with a warning in the log and without a change, if
  /// `statements` is below 0 or above kLargestLimit.
  static bool set_limit(int32_t statements);

  /// The limit in force.
  static int32_t limit();

  /// Finalises all statements that are kept and not in use, for example when the system asks the
  /// process to release memory. Later operations fill the cache again.
  static void clear();
};

}  // namespace Corvan

#endif  // ADDONS_STATEMENT_CACHE_STATEMENT_CACHE_H_
