// Interface of the key-value stores: ordered keys, transactions, cursors.

#ifndef BENCH_PEERS_KEY_VALUE_ENGINE_H_
#define BENCH_PEERS_KEY_VALUE_ENGINE_H_

#include <memory>
#include <string>
#include <string_view>

#include "bench/peers/peer.h"

namespace corvan_bench {

// Keys are compared as unsigned bytes.
class KeyValueEngine {
 public:
  // A position in the ordered keys. Views are valid until the next move or write. Inside a
  // transaction a cursor skips keys that the transaction erased; whether it sees keys that the
  // transaction put depends on the engine.
  class Cursor {
   public:
    Cursor() = default;
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;
    virtual ~Cursor() = default;

    virtual void seek(std::string_view key) = 0;         // to the first key >= `key`
    virtual void seek_before(std::string_view key) = 0;  // to the last key < `key`
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

  // Only one write transaction at a time. commit() returns when the data is on the disk.
  virtual void begin() = 0;
  virtual void commit() = 0;

  // Releases the snapshot of reads outside a transaction. Precondition: no cursor is open.
  virtual void end_read() {}

  // Includes the changes of the open transaction.
  virtual bool get(std::string_view key, std::string& value) = 0;
  virtual void put(std::string_view key, std::string_view value) = 0;
  virtual void erase(std::string_view key) = 0;
  virtual std::unique_ptr<Cursor> cursor() = 0;
};

// Creates a message store on such an engine.
std::unique_ptr<Store> make_key_value_store(std::unique_ptr<KeyValueEngine> engine);

}  // namespace corvan_bench

#endif  // BENCH_PEERS_KEY_VALUE_ENGINE_H_
