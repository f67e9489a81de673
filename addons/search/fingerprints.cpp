#include "addons/search/fingerprints.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "addons/search/hashing.h"

namespace Corvan::search {

Fingerprint fingerprint(std::string_view content) {
  const uint64_t hash = hash_of(content);
  const auto folded = static_cast<Fingerprint>(hash ^ (hash >> 32U));
  return folded == kNoMessage ? 1 : folded;
}

Fingerprint FingerprintRow::of(int64_t id) const {
  if (id < first_id || id > last_id()) return kNoMessage;
  return hashes[static_cast<std::size_t>(id - first_id)];
}

// The places that are added are empty: kNoMessage is 0.
void FingerprintRow::set(int64_t id, Fingerprint hash) {
  const auto place = static_cast<std::size_t>(id - first_id);
  if (place >= hashes.size()) hashes.resize(place + 1);
  hashes[place] = hash;
}

Fingerprints::Fingerprints(const Connection& index)
    : index_(index),
      at_or_before_(index,
                    "select first_id,hashes from fingerprint where first_id<=? "
                    "order by first_id desc limit 1"),
      from_(index,
            "select first_id,hashes from fingerprint where first_id>=? order by first_id limit 1"),
      write_(index, "insert or replace into fingerprint values(?,?)") {}

// The row that the statement finds. A blob of another size is cut.
const FingerprintRow* Fingerprints::read(Statement* rows, int64_t id) {
  flush();
  if (!rows->bind(id).row()) return nullptr;
  row_.first_id = rows->integer(0);
  const std::string_view bytes = rows->blob(1);
  row_.hashes.resize(std::min<std::size_t>(bytes.size() / sizeof(Fingerprint),
                                           static_cast<std::size_t>(FingerprintRow::kSize)));
  if (!row_.hashes.empty()) {
    std::memcpy(row_.hashes.data(), bytes.data(), row_.hashes.size() * sizeof(Fingerprint));
  }
  rows->reset();
  return &row_;
}

// The rows of a damaged table may not be in their order. The ends of loops depend on it.
void Fingerprints::require(bool is_in_order) const {
  if (!is_in_order) index_.fail(SQLITE_CORRUPT);
}

const FingerprintRow* Fingerprints::row_of(int64_t id) {
  const FingerprintRow* const row = read(&at_or_before_, id);
  require(row == nullptr || row->first_id <= id);
  return row != nullptr && row->has_place_for(id) ? row : nullptr;
}

const FingerprintRow* Fingerprints::row_before(int64_t id) {
  const FingerprintRow* const row = read(&at_or_before_, id - 1);
  require(row == nullptr || row->first_id < id);
  return row;
}

const FingerprintRow* Fingerprints::row_from(int64_t id) {
  const FingerprintRow* const row = read(&from_, id);
  require(row == nullptr || row->first_id >= id);
  return row;
}

Fingerprint Fingerprints::of(int64_t id) {
  const FingerprintRow* const row = row_of(id);
  return row != nullptr ? row->of(id) : kNoMessage;
}

void Fingerprints::load(int64_t id) {
  if (row_of(id) != nullptr) {
    current_ = std::move(row_);
  } else {
    current_ = {id, {}};
  }
}

void Fingerprints::append(int64_t id, Fingerprint hash) {
  if (!is_last_ || !current_.has_place_for(id)) load(id);
  is_last_ = true;
  put(id, hash);
}

void Fingerprints::set(int64_t id, Fingerprint hash) {
  load(id);
  is_last_ = false;
  put(id, hash);
}

void Fingerprints::put(int64_t id, Fingerprint hash) {
  current_.set(id, hash);
  is_changed_ = true;
}

void Fingerprints::cut_after(int64_t id) {
  discard();
  Statement(index_, "delete from fingerprint where first_id>?").bind(id).run();
  load(id);
  if (current_.last_id() <= id) return;
  current_.hashes.resize(static_cast<std::size_t>(id - current_.first_id + 1));
  is_changed_ = true;
  flush();
}

void Fingerprints::flush() {
  if (!is_changed_) return;
  const std::string_view bytes(reinterpret_cast<const char*>(current_.hashes.data()),
                               current_.hashes.size() * sizeof(Fingerprint));
  write_.bind(current_.first_id, Blob{bytes}).run();
  is_changed_ = false;
}

void Fingerprints::discard() {
  is_changed_ = false;
  is_last_ = false;
}

}  // namespace Corvan::search
