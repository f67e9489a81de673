// Reads the store's messages.

#ifndef ADDONS_SEARCH_STORE_READER_H_
#define ADDONS_SEARCH_STORE_READER_H_

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "addons/search/connection.h"
#include "addons/search/file_identity.h"

namespace Corvan::search {

// SQL for a message's time. A time that is not a number is 0.
constexpr const char* kMessageTime = "coalesce(cast(sent_time as integer),0)";

// A connection that only reads, to the file `corvan`.
class StoreReader {
 public:
  // Throws SqlError with the status kNoStore if the file is not a store or cannot be opened.
  explicit StoreReader(const std::string& file);

  const Connection& connection() const { return connection_; }
  // The file that was opened.
  const FileIdentity& identity() const { return identity_; }

  // The messages with ids from `first` to `last`, by id: (id, content). At most `limit`.
  Statement& messages(int64_t first, int64_t last, int64_t limit) {
    return messages_.bind(first, last, limit);
  }

  // The message's content; nothing if there is no such message. Valid until the next call.
  std::optional<std::string_view> content(int64_t id);

  // Whether an index has the messages in the order of kMessageTime: there is an index by time, and
  // each time is a number.
  bool has_time_order();

  // A new message gets an id above this one.
  int64_t newest_id();

 private:
  const FileIdentity identity_;
  const Connection connection_;
  Statement messages_;
  Statement newest_id_;
  Statement has_odd_time_;
  const bool has_time_index_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_STORE_READER_H_
