// The contenders: the stores and the two floors, each with its own file. They share an interface,
// so that reaching a call costs the same for all.

#ifndef BENCH_FLOOR_CONTENDERS_H_
#define BENCH_FLOOR_CONTENDERS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/linked_sqlite.h"
#include "bench/support/report.h"
#include "db/cv_db_records.h"

namespace corvan_bench {

class Contender {
 public:
  using Messages = std::vector<std::unique_ptr<Corvan::MessageResponse>>;

  Contender() = default;
  Contender(const Contender&) = delete;
  Contender& operator=(const Contender&) = delete;
  virtual ~Contender() = default;

  virtual void run(const std::string& sql) = 0;

  // Saves a received message, counted as unread.
  virtual int64_t save(const Corvan::MessageResponse& message) = 0;
  virtual bool save_batch(const Messages& messages) = 0;
  virtual bool history_page(const std::string& session_id, int32_t count,
                            std::vector<Corvan::MessageResponse>& page) = 0;
  virtual bool list_page(const std::vector<Corvan::SessionType>& kinds, int32_t limit,
                         std::vector<Corvan::SessionInfo>& page) = 0;
  virtual bool unread_count(const std::string& session_id, int32_t& unread) = 0;
  virtual bool set_read_status(int64_t msg_id, int32_t read_status) = 0;
  virtual bool delete_messages(const std::vector<int64_t>& ids) = 0;
};

enum class Kind {
  kStore,             // Corvan::db
  kFloor,             // prepares each statement for each use
  kCachedFloor,       // keeps the statements without pasted values
  kCachedStore,       // Corvan::db_cached
  kBuiltStore,        // Corvan::db on the built SQLite
  kBuiltCachedStore,  // Corvan::db_cached on the built SQLite
};

// The name used in the tables.
const char* name_of(Kind kind);

// The contenders that were built, the first three always.
std::vector<Kind> contenders();

// Opens the fixture in `folder`. A store is a singleton: only one contender of each kind of store
// can exist.
std::unique_ptr<Contender> make_contender(Kind kind, const std::string& folder);

// The SQLite that contenders of this kind use.
LinkedSqlite sqlite_of(Kind kind);

// Prints a table of all contenders, and which were not built.
void print_contenders(Report& report);

// The store of the library that the caller's program or module is linked with.
std::unique_ptr<Contender> make_store_contender(const std::string& folder);

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_CONTENDERS_H_
