#include <leveldb/db.h>
#include <leveldb/filter_policy.h>
#include <leveldb/write_batch.h>

#include <optional>
#include <stdexcept>
#include <unordered_map>

#include "bench/peers/contenders.h"
#include "bench/peers/io_counts.h"
#include "bench/peers/key_value_engine.h"

namespace corvan_bench {

namespace {

void check(const leveldb::Status& status) {
  if (!status.ok()) throw std::runtime_error("LevelDB: " + status.ToString());
}

leveldb::Slice to_slice(std::string_view text) {
  return {text.data(), text.size()};
}
std::string_view to_view(const leveldb::Slice& slice) {
  return {slice.data(), slice.size()};
}

// The changes of the open transaction, because a batch cannot be read. No value: erased.
using Pending = std::unordered_map<std::string, std::optional<std::string>>;

class LevelDbCursor final : public KeyValueEngine::Cursor {
 public:
  LevelDbCursor(leveldb::DB& db, const Pending& pending)
      : iterator_(db.NewIterator(leveldb::ReadOptions())), pending_(pending) {}

  void seek(std::string_view key) override {
    iterator_->Seek(to_slice(key));
    while (erased()) iterator_->Next();
  }
  void seek_before(std::string_view key) override {
    iterator_->Seek(to_slice(key));
    if (iterator_->Valid()) {
      iterator_->Prev();
    } else {
      iterator_->SeekToLast();
    }
    while (erased()) iterator_->Prev();
  }
  void next() override {
    do iterator_->Next();
    while (erased());
  }
  void prev() override {
    do iterator_->Prev();
    while (erased());
  }
  bool valid() const override { return iterator_->Valid(); }
  std::string_view key() const override { return to_view(iterator_->key()); }
  std::string_view value() const override { return to_view(iterator_->value()); }

 private:
  bool erased() const {
    if (pending_.empty() || !iterator_->Valid()) return false;
    const auto found = pending_.find(iterator_->key().ToString());
    return found != pending_.end() && !found->second;
  }

  const std::unique_ptr<leveldb::Iterator> iterator_;
  const Pending& pending_;
};

// A transaction is one batch, and its log record is synced at the commit. The manual recommends a
// Bloom filter for look-ups of keys that are mostly missing, such as those of the duplicate checks.
class LevelDbEngine final : public KeyValueEngine {
 public:
  void open(const std::string& folder) override {
    leveldb::Options options;
    options.create_if_missing = true;
    options.filter_policy = filter_.get();
    leveldb::DB* db = nullptr;
    check(leveldb::DB::Open(options, folder, &db));
    db_.reset(db);
  }
  void close() override { db_.reset(); }

  void begin() override { pending_.clear(); }
  void commit() override {
    if (pending_.empty()) return;
    leveldb::WriteBatch batch;
    for (const auto& [key, value] : pending_) {
      if (value) {
        batch.Put(key, *value);
      } else {
        batch.Delete(key);
      }
    }
    leveldb::WriteOptions durable;
    durable.sync = true;
    check(db_->Write(durable, &batch));
    pending_.clear();
    count_commit();
  }

  bool get(std::string_view key, std::string& value) override {
    if (!pending_.empty()) {
      const auto found = pending_.find(std::string(key));
      if (found != pending_.end()) {
        if (found->second) value = *found->second;
        return found->second.has_value();
      }
    }
    const leveldb::Status status = db_->Get(leveldb::ReadOptions(), to_slice(key), &value);
    if (status.IsNotFound()) return false;
    check(status);
    return true;
  }
  void put(std::string_view key, std::string_view value) override {
    pending_[std::string(key)] = std::string(value);
  }
  void erase(std::string_view key) override { pending_[std::string(key)] = std::nullopt; }
  std::unique_ptr<Cursor> cursor() override {
    return std::make_unique<LevelDbCursor>(*db_, pending_);
  }

 private:
  const std::unique_ptr<const leveldb::FilterPolicy> filter_{leveldb::NewBloomFilterPolicy(10)};
  std::unique_ptr<leveldb::DB> db_;
  Pending pending_;
};

}  // namespace

std::unique_ptr<Store> make_leveldb_store() {
  return make_key_value_store(std::make_unique<LevelDbEngine>());
}

std::string leveldb_version() {
  return std::to_string(leveldb::kMajorVersion) + "." + std::to_string(leveldb::kMinorVersion);
}

}  // namespace corvan_bench
