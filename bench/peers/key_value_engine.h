// What the key-value stores are asked for: ordered keys, transactions, cursors.

#ifndef BENCH_PEERS_KEY_VALUE_ENGINE_H_
#define BENCH_PEERS_KEY_VALUE_ENGINE_H_

#include <memory>
#include <string>
#include <string_view>

#include "bench/peers/peer.h"

namespace corvan_bench {

// Keys are ordered as unsigned bytes.
class KeyValueEngine {
 public:
  // A place among the keys. Views are valid until the next move or write. Inside a transaction, a
  // cursor leaves out what the transaction erased; whether it sees what the transaction put is the
  // engine's choice.
  class Cursor {
   public:
    Cursor() = default;
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    virtual ~Cursor() = default;

    virtual void seek(std::string_view key) = 0;         // to the first key not less
    virtual void seek_before(std::string_view key) = 0;  // to the last key that is less
    virtual void next() = 0;
    virtual void prev() = 0;
    virtual bool valid() const = 0;
    virtual std::string_view key() const = 0;
    virtual std::string_view value() const = 0;
  };

  KeyValueEngine() = default;
  KeyValueEngine(const KeyValueEngine&) = delete;
  KeyValueEngine& operator=(const KeyValueEngine&) = delete;
  virtual ~KeyValueEngine() = default;

  virtual void open(const std::string& folder) = 0;
  virtual void close() = 0;

  // One write transaction at a time; a commit is on the disk when it returns.
  virtual void begin() = 0;
  virtual void commit() = 0;

  // Ends what a read outside a transaction holds. No cursor is open by then.
  virtual void end_read() {}

  // Sees what the open transaction put and erased.
  virtual bool get(std::string_view key, std::string& value) = 0;
  virtual void put(std::string_view key, std::string_view value) = 0;
  virtual void erase(std::string_view key) = 0;
  virtual std::unique_ptr<Cursor> cursor() = 0;
};

// The message store on such an engine.
std::unique_ptr<Store> make_key_value_store(std::unique_ptr<KeyValueEngine> engine);

}  // namespace corvan_bench

#endif  // BENCH_PEERS_KEY_VALUE_ENGINE_H_
