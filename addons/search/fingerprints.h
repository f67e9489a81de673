// What the index knows of each message's content.

#ifndef ADDONS_SEARCH_FINGERPRINTS_H_
#define ADDONS_SEARCH_FINGERPRINTS_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "addons/search/connection.h"

namespace Corvan::search {

using Fingerprint = uint32_t;

// The fingerprint of an indexed content; never kNoMessage.
Fingerprint fingerprint(std::string_view content);
constexpr Fingerprint kNoMessage = 0;

// The fingerprints of messages whose ids follow each other.
struct FingerprintRow {
  // At most so many ids. Four such rows fit in a page, also in one of an encrypted file, where a
  // cipher keeps 64 bytes of each page for itself.
  static constexpr int64_t kSize = 248;

  int64_t first_id = 0;
  std::vector<Fingerprint> hashes;

  int64_t last_id() const { return first_id + static_cast<int64_t>(hashes.size()) - 1; }
  Fingerprint of(int64_t id) const;
  // Whether a message with this id can be in this row, if no other row begins before the id.
  bool has_place_for(int64_t id) const { return id >= first_id && id - first_id < kSize; }
  // Only if it has a place for the id.
  void set(int64_t id, Fingerprint hash);
};

// The table `fingerprint`. Changes are kept until flush() or the next change of another row.
class Fingerprints {
 public:
  explicit Fingerprints(const Connection& index);

  // The row that has the id, or would have it; null if there is none. This and the next two are
  // valid until the next call.
  const FingerprintRow* row_of(int64_t id);
  // The row before this id; the first row at or after it.
  const FingerprintRow* row_before(int64_t id);
  const FingerprintRow* row_from(int64_t id);

  Fingerprint of(int64_t id);
  void set(int64_t id, Fingerprint hash);
  // The same for an id above all others.
  void append(int64_t id, Fingerprint hash);

  // Deletes everything above the id.
  void cut_after(int64_t id);

  // Writes what was set.
  void flush();
  // Forgets what was set and not written, after a rollback.
  void discard();

 private:
  const FingerprintRow* read(Statement* rows, int64_t id);
  void require(bool is_in_order) const;
  void load(int64_t id);
  void put(int64_t id, Fingerprint hash);

  const Connection& index_;
  Statement at_or_before_;
  Statement from_;
  Statement write_;
  FingerprintRow row_;      // that was read last
  FingerprintRow current_;  // that was changed last
  bool is_changed_ = false;
  bool is_last_ = false;  // no row begins after the current one
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FINGERPRINTS_H_
