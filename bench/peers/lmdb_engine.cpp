#include <lmdb.h>

#include <stdexcept>

#include "bench/peers/contenders.h"
#include "bench/peers/io_counts.h"
#include "bench/peers/key_value_engine.h"

namespace corvan_bench {

namespace {

// Maximum file size. Unused parts take no disk space.
constexpr std::size_t kMapSize = std::size_t{4} << 30;

void check(int code) {
  if (code != MDB_SUCCESS) throw std::runtime_error(std::string("LMDB: ") + mdb_strerror(code));
}

// True if the key was found; throws on other errors.
bool found(int code) {
  if (code == MDB_NOTFOUND) return false;
  check(code);
  return true;
}

MDB_val to_val(std::string_view text) {
  return {text.size(), const_cast<char*>(text.data())};  // LMDB does not modify it
}
std::string_view to_view(const MDB_val& value) {
  return {static_cast<const char*>(value.mv_data), value.mv_size};
}

class LmdbCursor final : public KeyValueEngine::Cursor {
 public:
  LmdbCursor(MDB_txn* transaction, MDB_dbi dbi) {
    check(mdb_cursor_open(transaction, dbi, &cursor_));
  }
  ~LmdbCursor() override { mdb_cursor_close(cursor_); }

  void seek(std::string_view key) override {
    key_ = to_val(key);
    move(MDB_SET_RANGE);
  }
  void seek_before(std::string_view key) override {
    seek(key);
    move(valid_ ? MDB_PREV : MDB_LAST);
  }
  void next() override { move(MDB_NEXT); }
  void prev() override { move(MDB_PREV); }
  bool valid() const override { return valid_; }
  std::string_view key() const override { return to_view(key_); }
  std::string_view value() const override { return to_view(value_); }

 private:
  void move(MDB_cursor_op how) { valid_ = found(mdb_cursor_get(cursor_, &key_, &value_, how)); }

  MDB_cursor* cursor_ = nullptr;
  MDB_val key_ = {};
  MDB_val value_ = {};
  bool valid_ = false;
};

// All keys are in one tree, so that a commit writes a single path of inner pages. Without flags,
// each commit writes its pages, syncs them, and then writes the meta page through a handle that
// syncs each write.
class LmdbEngine final : public KeyValueEngine {
 public:
  ~LmdbEngine() override { LmdbEngine::close(); }

  void open(const std::string& folder) override {
    check(mdb_env_create(&env_));
    check(mdb_env_set_mapsize(env_, kMapSize));
    check(mdb_env_open(env_, folder.c_str(), 0, 0644));
    check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &read_));
    check(mdb_dbi_open(read_, nullptr, 0, &dbi_));
    reading_ = true;
  }

  void close() override {
    if (env_ == nullptr) return;
    mdb_txn_abort(write_);
    mdb_txn_abort(read_);
    mdb_env_close(env_);
    env_ = nullptr;
    write_ = nullptr;
    read_ = nullptr;
  }

  void begin() override {
    end_read();
    check(mdb_txn_begin(env_, nullptr, 0, &write_));
    changed_ = false;
  }
  void commit() override {
    MDB_txn* transaction = write_;
    write_ = nullptr;
    check(mdb_txn_commit(transaction));
    if (changed_) count_commit();
  }

  // As the manual recommends, the read transaction is kept and renewed for each read.
  void end_read() override {
    if (reading_) mdb_txn_reset(read_);
    reading_ = false;
  }

  bool get(std::string_view key, std::string& value) override {
    MDB_val k = to_val(key);
    MDB_val v = {};
    if (!found(mdb_get(transaction(), dbi_, &k, &v))) return false;
    value = to_view(v);
    return true;
  }
  void put(std::string_view key, std::string_view value) override {
    MDB_val k = to_val(key);
    MDB_val v = to_val(value);
    check(mdb_put(write_, dbi_, &k, &v, 0));
    changed_ = true;
  }
  void erase(std::string_view key) override {
    MDB_val k = to_val(key);
    if (found(mdb_del(write_, dbi_, &k, nullptr))) changed_ = true;
  }
  std::unique_ptr<Cursor> cursor() override {
    return std::make_unique<LmdbCursor>(transaction(), dbi_);
  }

 private:
  MDB_txn* transaction() {
    if (write_ != nullptr) return write_;
    if (!reading_) check(mdb_txn_renew(read_));
    reading_ = true;
    return read_;
  }

  MDB_env* env_ = nullptr;
  MDB_txn* write_ = nullptr;  // null outside a transaction
  MDB_txn* read_ = nullptr;
  MDB_dbi dbi_ = 0;
  bool reading_ = false;  // the read transaction has a snapshot
  bool changed_ = false;  // the write transaction has changes
};

}  // namespace

std::unique_ptr<Store> make_lmdb_store() {
  return make_key_value_store(std::make_unique<LmdbEngine>());
}

std::string lmdb_version() {
  int major = 0;
  int minor = 0;
  int patch = 0;
  mdb_version(&major, &minor, &patch);
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

}  // namespace corvan_bench
