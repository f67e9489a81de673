// The floor: the store's operations, written directly on SQLite's C interface. Each runs the same
// statements in the same order and fills the same records, without logging, checks or error
// handling.

#ifndef BENCH_FLOOR_FLOOR_H_
#define BENCH_FLOOR_FLOOR_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/floor/statements.h"
#include "db/cv_db_records.h"

namespace corvan_bench {

// Opens a connection like the store: same flags, settings and first statements.
class FloorConnection {
 public:
  explicit FloorConnection(const std::string& file);
  FloorConnection(const FloorConnection&) = delete;
  FloorConnection& operator=(const FloorConnection&) = delete;
  ~FloorConnection() { sqlite3_close(db_); }

  sqlite3* get() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

// `Statements` is PreparedEachTime or PreparedOnce. Parameters and results are as in the store's
// operations with the same names.
template <typename Statements>
class Floor {
 public:
  Floor(const std::string& file, std::string user_id);

  void run(const char* sql);

  int64_t save_message(const std::string& session_id, Corvan::SessionType session_type,
                       const std::string& object_name, const std::string& sender,
                       const std::string& content, bool is_receive, int32_t sent_status,
                       int32_t read_status, bool is_mention, int64_t sent_time, int64_t client_uid,
                       const std::string& server_uid, bool history, bool insert_only,
                       bool is_count);
  bool save_message(const std::vector<std::unique_ptr<Corvan::MessageResponse>>& messages);
  bool set_read_status(int64_t msg_id, int32_t read_status);
  bool delete_message(const std::vector<int64_t>& ids);
  bool get_history_message_by_object_name(const std::string& session_id,
                                          Corvan::SessionType session_type,
                                          const std::vector<std::string>& object_name,
                                          int64_t message_id, int32_t count,
                                          std::vector<Corvan::MessageResponse>& messages,
                                          bool desc);
  bool get_session_list_by_page(const std::vector<Corvan::SessionType>& kinds, int64_t sent_time,
                                int32_t limit, std::vector<Corvan::SessionInfo>& sessions);
  bool get_unread_count(const std::string& session_id, Corvan::SessionType session_type,
                        int32_t& unread);

 private:
  void move_session(const std::string& session_id, Corvan::SessionType session_type,
                    int64_t sent_time, const std::string& object_name, int64_t msg_id,
                    int32_t unread, int32_t mention, bool history, bool insert_only, bool own_time);
  void lower_counters(const std::string& session_id, int32_t session_type, int32_t unread,
                      int32_t mention);
  void point_at_newest(const std::string& session_id, int32_t session_type);

  FloorConnection connection_;
  std::string user_id_;
  Statements fixed_;         // texts without values; there are few of them
  PreparedEachTime pasted_;  // texts with ids or counts, rarely the same twice
  bool page_ended_pinned_ = false;
};

extern template class Floor<PreparedEachTime>;
extern template class Floor<PreparedOnce>;

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_FLOOR_H_
