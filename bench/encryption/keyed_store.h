// The store with or without a key, in a module: see support/store_module.h.

#ifndef BENCH_ENCRYPTION_KEYED_STORE_H_
#define BENCH_ENCRYPTION_KEYED_STORE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_bench {

enum class KeyForm { kNone, kRaw, kPassphrase };

// The store of one module. All members throw std::runtime_error if the store refuses a call.
class KeyedStore {
 public:
  using Messages = std::vector<std::unique_ptr<Corvan::MessageResponse>>;

  KeyedStore() = default;
  KeyedStore(const KeyedStore&) = delete;
  KeyedStore& operator=(const KeyedStore&) = delete;
  virtual ~KeyedStore() = default;

  // Sets a key of this form for the folder.
  virtual void set_key(const std::string& folder, KeyForm form) = 0;
  virtual void open(const std::string& folder) = 0;
  virtual void close() = 0;

  virtual void begin() = 0;
  virtual void commit() = 0;
  virtual void run(const std::string& sql) = 0;

  virtual void save(const Corvan::MessageResponse& message) = 0;
  virtual void save_batch(const Messages& messages) = 0;
  // The 20 messages of a conversation before one of its messages.
  virtual void read_history(const Corvan::MessageResponse& before) = 0;
  // The first 20 conversations of the list.
  virtual void read_list() = 0;
  virtual void count_unread() = 0;
  // Looks an own message up by its client uid.
  virtual void find(const Corvan::MessageResponse& message) = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_KEYED_STORE_H_
