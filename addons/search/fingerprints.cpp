#include "addons/search/fingerprints.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "addons/search/hashing.h"

namespace Corvan::search {

namespace {

// The row that the statement finds. A blob of another size is cut.
std::optional<FingerprintRow> read(Statement& statement) {
  if (!statement.row()) return std::nullopt;
  FingerprintRow row;
  row.first_id = statement.integer(0);
  const std::string_view bytes = statement.blob(1);
  const std::size_t count = std::min<std::size_t>(bytes.size() / sizeof(Fingerprint),
                                                  static_cast<std::size_t>(FingerprintRow::kSize));
  row.hashes.resize(count);
  if (count > 0) std::memcpy(row.hashes.data(), bytes.data(), count * sizeof(Fingerprint));
  statement.reset();
  return row;
}

}  // namespace

Fingerprint fingerprint(std::string_view content) {
  const uint64_t hash = hash_of(content);
  const auto folded = static_cast<Fingerprint>(hash ^ (hash >> 32U));
  return folded == kNoMessage ? 1 : folded;
}

Fingerprint FingerprintRow::of(int64_t id) const {
  if (id < first_id || id > last_id()) return kNoMessage;
  return hashes[static_cast<std::size_t>(id - first_id)];
}

Fingerprints::Fingerprints(const Connection& index)
    : index_(index),
      at_or_before_(index,
                    "select first_id,hashes from fingerprint where first_id<=? "
                    "order by first_id desc limit 1"),
      from_(index,
            "select first_id,hashes from fingerprint where first_id>=? order by first_id limit 1"),
      write_(index, "insert or replace into fingerprint values(?,?)") {}

std::optional<FingerprintRow> Fingerprints::row_of(int64_t id) {
  flush();
  std::optional<FingerprintRow> row = read(at_or_before_.bind(id));
  require(!row || row->first_id <= id);
  if (row && !row->has_place_for(id)) row.reset();
  return row;
}

// The rows of a damaged table may not be in their order. The ends of loops depend on it.
void Fingerprints::require(bool is_in_order) const {
  if (!is_in_order) index_.fail(SQLITE_CORRUPT);
}

std::optional<FingerprintRow> Fingerprints::row_before(int64_t id) {
  flush();
  std::optional<FingerprintRow> row = read(at_or_before_.bind(id - 1));
  require(!row || row->first_id < id);
  return row;
}

std::optional<FingerprintRow> Fingerprints::row_from(int64_t id) {
  flush();
  std::optional<FingerprintRow> row = read(from_.bind(id));
  require(!row || row->first_id >= id);
  return row;
}

Fingerprint Fingerprints::of(int64_t id) {
  const std::optional<FingerprintRow> row = row_of(id);
  return row ? row->of(id) : kNoMessage;
}

void Fingerprints::load(int64_t id) {
  std::optional<FingerprintRow> row = row_of(id);
  current_ = row ? std::move(*row) : FingerprintRow{id, {}};
}

void Fingerprints::append(int64_t id, Fingerprint hash) {
  if (!is_last_ || !current_ || !current_->has_place_for(id)) load(id);
  is_last_ = true;
  put(id, hash);
}

void Fingerprints::set(int64_t id, Fingerprint hash) {
  load(id);
  is_last_ = false;
  put(id, hash);
}

void Fingerprints::put(int64_t id, Fingerprint hash) {
  const auto place = static_cast<std::size_t>(id - current_->first_id);
  if (place >= current_->hashes.size()) current_->hashes.resize(place + 1, kNoMessage);
  current_->hashes[place] = hash;
  is_changed_ = true;
}

void Fingerprints::cut_after(int64_t id) {
  discard();
  Statement(index_, "delete from fingerprint where first_id>?").bind(id).run();
  std::optional<FingerprintRow> row = row_of(id);
  if (!row || row->last_id() <= id) return;
  row->hashes.resize(static_cast<std::size_t>(id - row->first_id + 1));
  current_ = std::move(row);
  is_changed_ = true;
  flush();
}

void Fingerprints::flush() {
  if (!is_changed_) return;
  const std::string_view bytes(reinterpret_cast<const char*>(current_->hashes.data()),
                               current_->hashes.size() * sizeof(Fingerprint));
  write_.bind(current_->first_id, Blob{bytes}).run();
  is_changed_ = false;
}

void Fingerprints::discard() {
  current_.reset();
  is_changed_ = false;
  is_last_ = false;
}

}  // namespace Corvan::search
