// The file of the index, and what it contains.

#ifndef ADDONS_SEARCH_INDEX_FILE_H_
#define ADDONS_SEARCH_INDEX_FILE_H_

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "addons/search/checksums.h"
#include "addons/search/connection.h"

namespace Corvan::search {

// Larger ids, which no store gives, are never indexed.
constexpr int64_t kLastId = int64_t{1} << 62;

// At most so many messages have their terms in one table.
constexpr int64_t kShardSize = 131072;

// The single row of the table `state`.
struct State {
  int64_t highest = 0;   // messages with larger ids are not indexed yet; ids begin with 1
  int64_t swept_to = 0;  // the present sweep has compared the messages up to this id
  // The sweep's position in the checksums of the shard that ends there; its end if it is past them.
  int64_t verified_to = Checksums::kEnd;
  bool is_swept = false;    // a sweep has reached the end
  int64_t next_number = 1;  // of a shard's table
};

// A range of ids whose messages' terms are in one FTS5 table. The range ends before the next
// shard's first id.
struct Shard {
  int64_t first_id = 0;
  int64_t number = 0;       // of its table
  int64_t messages = 0;     // messages that it has
  int64_t stale = 0;        // messages that it had with another content; their old terms are in it
  int64_t unmerged = 0;     // messages that were added since its segments were merged
  bool is_merging = false;  // the segments are being merged
  int64_t building = 0;     // number of the table that is to replace its table; 0: none
  int64_t built_to = 0;     // that table has the messages up to this id
  int64_t stale_built = 0;  // messages that it had with another content

  // What it consists of.
  std::array<int64_t, 9> values() const {
    return {first_id,           number,   messages, stale,      unmerged,
            is_merging ? 1 : 0, building, built_to, stale_built};
  }
  // Its row in the table `shard`: the values, and their hash.
  std::array<int64_t, 10> row() const;
};

std::string shard_table(int64_t number);

// Closes the connections of the process that can be closed, and keeps them closed until the lock is
// released.
using IndexCloser = std::function<std::unique_lock<std::mutex>()>;

// Opens the index of the store `store` for writing. A file that is not an index of this version is
// deleted, and a missing one is created. Throws SqlError with the status kIndexError.
std::unique_ptr<Connection> open_index_for_writing(const std::string& file,
                                                   const std::string& store,
                                                   const IndexCloser& close_others);

// Opens the index for reading; null if there is none that can be read.
std::unique_ptr<Connection> open_index_for_reading(const std::string& file);

// Deletes the file with its log. True if there is none afterwards. If the file itself cannot be
// deleted, the log stays, too.
bool delete_index(const std::string& file);

// The same, but tries again after close_others() if it fails: on Windows, a file that is open
// cannot be deleted.
bool delete_index(const std::string& file, const IndexCloser& close_others);

// Throws SqlError with the status kIndexError.
[[noreturn]] void fail_index(int code, std::initializer_list<std::string_view> text);

// Whether this error says that the index is not as this library wrote it.
bool is_damage(const SqlError& error);

// Reads the table `state`. The statement is of kStateQuery.
extern const char* const kStateQuery;
State read_state(Statement* rows);
// Reads the table `shard`, from the oldest to the newest. The statement is of kShardQuery.
extern const char* const kShardQuery;
std::vector<Shard> read_shards(Statement* rows);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_INDEX_FILE_H_
