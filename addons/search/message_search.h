/// @file
/// Full-text search: finds messages by words, parts of words, phrases and emoji, in every script.
///
/// The index is a file of its own, `corvan-search`, in the store's folder. The store's file is only
/// read. docs/search.md describes queries, costs and the index's life.

#ifndef ADDONS_SEARCH_MESSAGE_SEARCH_H_
#define ADDONS_SEARCH_MESSAGE_SEARCH_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/pathname.h"
#include "db/cv_db_records.h"

namespace Corvan {

namespace search {
class Indexing;
class Reading;
}  // namespace search

/// How a call ended.
enum class SearchStatus : int32_t {
  kOk = 0,
  kNoStore = 1,     ///< there is no store in the folder, or it cannot be opened
  kStoreError = 2,  ///< the store cannot be read: it is damaged, locked, or its reading failed
  kIndexError = 3,  ///< the index cannot be created, read or written; find() never returns it
  kBadQuery = 4,    ///< the query has nothing to search for or is too long; or the limit is below 1
  kNoMemory = 5,    ///< memory ran out
};

/// The status in words, such as "there is no store, or it cannot be opened". Static text.
const char* to_text(SearchStatus status);

/// A place in the results, which are sorted by time, then by id, both from the largest down.
struct SearchPlace {
  int64_t sent_time = 0;  ///< t_message.sent_time
  int64_t id = 0;         ///< t_message.id
};

/// What find() looks for besides the words. An empty list or optional does not limit the search.
struct SearchOptions {
  std::optional<std::string> session_id;   ///< only in conversations with this id
  std::vector<SessionType> session_types;  ///< only in conversations of these kinds
  std::vector<std::string> object_names;   ///< only messages of these kinds
  std::optional<std::string> sender;       ///< only messages of this user
  int64_t from_time = std::numeric_limits<int64_t>::min();  ///< only messages from this time on
  int64_t to_time = std::numeric_limits<int64_t>::max();    ///< only messages up to this time
  std::optional<SearchPlace> before;  ///< only messages after this place in the results
  int32_t limit = 20;                 ///< at most so many messages; must be above 0
  /// Return after this time with the messages found so far. 0: no limit. Each call gets further
  /// than the one before, however short the time is.
  std::chrono::microseconds time_limit{0};
  /// Call catch_up() with this budget first, unless another thread is writing the index. 0: do not.
  std::chrono::microseconds catch_up{0};
};

/// A message that matches.
struct SearchHit {
  int64_t id = 0;         ///< t_message.id
  int64_t sent_time = 0;  ///< t_message.sent_time
};

/// What find() returns.
struct SearchResults {
  SearchStatus status = SearchStatus::kOk;  ///< how the call ended
  std::vector<SearchHit> hits;              ///< from the newest to the oldest
  /// Where to go on, as `before` of the next call; empty if there are no more messages. If the time
  /// ran out, this can be a place without a message, and `hits` may be empty.
  std::optional<SearchPlace> next;
};

/// What catch_up() and sweep() return.
struct SearchWork {
  SearchStatus status = SearchStatus::kOk;  ///< how the call ended
  /// catch_up(): messages indexed; sweep(): messages compared with the index
  int64_t messages = 0;
  int64_t mended = 0;  ///< sweep(): messages that had changed, or were gone
  /// catch_up(): all messages are indexed, and the file is compact; sweep(): the pass is complete,
  /// and mended what had changed before it began. Otherwise call it again.
  bool complete = false;
};

/// The state of the index, for a user interface.
struct SearchProgress {
  SearchStatus status = SearchStatus::kOk;  ///< how the call ended
  /// messages in the index; deleted ones count until changed() or sweep() notices
  int64_t indexed = 0;
  int64_t waiting = 0;    ///< at most so many messages wait for catch_up()
  double swept = 0;       ///< the part of the index that the present sweep has compared, 0 to 1
  bool is_swept = false;  ///< whether a sweep has been completed since the index was created
};

/// A part of a text.
struct SearchRange {
  std::size_t begin = 0;  ///< offset of the first byte
  std::size_t size = 0;   ///< bytes
};

/// The search in one store. Create one object for each open store, and destroy it before the store
/// is closed, converted or deleted.
///
/// A message is found if its content, as the store has it now, matches the query. No result is
/// taken from the index unseen: find() reads each message that it returns. The index can only be
/// incomplete: find() reads messages that catch_up() has not indexed yet one by one; a message
/// whose content was changed is found by its new words after changed() or sweep().
///
/// All members may be called from any thread. catch_up(), changed() and sweep() exclude each other;
/// find(), snippet() and progress() do not wait for them, unless the files must be opened. Nothing
/// throws, but for the constructor when memory runs out. Each failure but kBadQuery writes one line
/// to the log.
class MessageSearch {
 public:
  /// The name of the index's file.
  static constexpr const char* kFileName = "corvan-search";

  /// The longest query, in bytes.
  static constexpr std::size_t kLongestQuery = 4096;

  /// Only remembers the folder, which is given as to `CvDbSingleton::init_open_db()`: only
  /// `folder.folder()` counts. The files are opened by the first call that needs them.
  explicit MessageSearch(const cvrtc::Pathname& folder);
  ~MessageSearch();
  MessageSearch(const MessageSearch&) = delete;
  MessageSearch& operator=(const MessageSearch&) = delete;

  /// Opens the store for reading, and the index. Every other member does so too.
  ///
  /// An index that is damaged, foreign, encrypted with another key, or written with another
  /// tokenizer is deleted and created again; so is the part of it that does not fit the store.
  /// kIndexError means that the search works without an index. On Windows, an open file cannot be
  /// deleted: if another object or program has such an index open, the result is kIndexError until
  /// it closes the file.
  SearchStatus open();

  /// Finds the newest messages that match the query.
  ///
  /// The query consists of terms, separated by spaces; a message must contain all of them. A term
  /// is a word, or several in quotation marks, which then must follow each other. `*` after a term
  /// lets its last word be the beginning of a longer one. Case and width do not matter (NFKC).
  /// Chinese, Japanese, Korean, Thai, Lao, Khmer and Burmese characters and emoji match wherever
  /// they stand. Punctuation separates words.
  SearchResults find(const std::string& query, const SearchOptions& options = SearchOptions());

  /// Indexes messages that were saved since the last call, for at most about this time, at least
  /// one batch. Cheap if there are none. What is indexed stays so if the process is killed.
  SearchWork catch_up(std::chrono::microseconds budget);

  /// Says that the content of this message was replaced, or that it was deleted.
  SearchStatus changed(int64_t id);

  /// Compares a further part of the index with the store, for at most about this time, and mends
  /// it: messages that were changed or deleted without a call of changed(). Then removes their old
  /// words from the file. The next call goes on where this one ended, also in another process.
  SearchWork sweep(std::chrono::microseconds budget);

  /// How far the index has come.
  SearchProgress progress();

  /// The parts of `text`, a message's content, that match the query, from the first to the last,
  /// without overlaps; whole characters of UTF-8. Empty if not all terms match, or the query is too
  /// long.
  static std::vector<SearchRange> snippet(const std::string& text, const std::string& query);

  /// Deletes the index of the folder's store, for example before the store is encrypted. No object
  /// may have it open. True if there is no index afterwards; otherwise false, with a line in the
  /// log.
  static bool remove(const cvrtc::Pathname& folder);

 private:
  void prepare(std::chrono::microseconds catch_up);

  const std::unique_ptr<search::Indexing> indexing_;
  const std::unique_ptr<search::Reading> reading_;
};

}  // namespace Corvan

#endif  // ADDONS_SEARCH_MESSAGE_SEARCH_H_
