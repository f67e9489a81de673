// Reads the store's messages.

#ifndef ADDONS_SEARCH_STORE_READER_H_
#define ADDONS_SEARCH_STORE_READER_H_

#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "addons/search/connection.h"
#include "addons/search/file_identity.h"
#include "addons/search/time_blocks.h"

namespace Corvan::search {

// SQL for a message's time. A time that is not a number is 0.
constexpr const char* kMessageTime = "coalesce(cast(sent_time as integer),0)";

// A connection that only reads, to the file `corvan`.
class StoreReader {
 public:
  // Throws SqlError, with the status kNoStore if the file cannot be opened.
  explicit StoreReader(const std::string& file);

  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  const Connection& connection() const { return connection_; }
  // The file that was opened.
  const FileIdentity& identity() const { return identity_; }

  // The messages with ids from `first` to `last`, by id: (id, content). At most `limit`.
  // next_message() reads the rows.
  Statement& messages(int64_t first, int64_t last, int64_t limit) {
    next_id_ = first;
    return messages_.bind(first, last, limit);
  }
  // True if there is a further row of messages(). Throws SqlError if the rows of a damaged table
  // are not in their order: the ends of loops depend on it.
  bool next_message();

  // Folded texts of a few messages, taken from all over `ids` ids from `first` on. Long texts are
  // cut.
  std::vector<std::string> sample(int64_t first, int64_t ids);

  // The message's content; nothing if there is no such message. Valid until the next call.
  std::optional<std::string_view> content(int64_t id);

  // Whether an index has the messages in the order of kMessageTime: there is an index by time, and
  // each time is a number.
  bool has_time_order();

  // Only if has_time_order().
  TimeBlocks& time_blocks() { return time_blocks_; }

  // The SQL function wanted(ID) of the connection asks `wanted`; SQLite then returns a tenth of the
  // rows instead of all. Statements with the function run between set_wanted() and clear_wanted().
  void set_wanted(std::function<bool(int64_t)> wanted) { wanted_ = std::move(wanted); }
  void clear_wanted() { wanted_ = nullptr; }
  // Throws again what `wanted` has thrown.
  void rethrow();

  // A new message gets an id above this one.
  int64_t newest_id();

 private:
  static void ask_wanted(sqlite3_context* context, int count, sqlite3_value** values) noexcept;

  const FileIdentity identity_;
  const Connection connection_;
  std::function<bool(int64_t)> wanted_;
  std::exception_ptr failure_;
  Statement messages_;
  int64_t next_id_ = 0;  // the next row has this id or a larger one
  Statement sample_;
  Statement content_;
  std::string text_;  // what content() has read
  Statement newest_id_;
  Statement has_odd_time_;
  const bool has_time_index_;
  TimeBlocks time_blocks_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_STORE_READER_H_
