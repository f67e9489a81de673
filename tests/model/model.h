// A second implementation of the store in plain containers, without SQL and without a file. The
// random runs of model_test.cpp compare the store with it. Its operations are in a file per
// section.

#ifndef TESTS_MODEL_MODEL_H_
#define TESTS_MODEL_MODEL_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_test {

// The rows, with every integer as wide as its column.
struct MessageRow {
  int64_t id = 0;
  std::string session_id;
  int64_t session_type = 0;
  std::string object_name;
  std::string content;
  std::string sender;
  int64_t direction = 0;
  int64_t sent_status = 0;
  int64_t read_status = 0;
  int64_t is_mention = 0;
  int64_t sent_time = 0;
  int64_t client_uid = 0;
  std::string server_uid;
};

struct SessionRow {
  int64_t row_id = 0;
  std::string session_id;
  int64_t session_type = 0;
  std::string title;
  std::string draft;
  int64_t is_top = 0;
  int64_t session_time = 0;
  int64_t unread_count = 0;
  int64_t mention_count = 0;
  int64_t silence = 0;
  int64_t latest_id = 0;
  int64_t read_time = 0;
  int64_t receipt_time = 0;
};

struct SyncRow {
  int64_t row_id = 0;
  int64_t receive_time = 0;
  int64_t sent_time = 0;
};

struct Tables {
  std::map<int64_t, MessageRow> messages;  // by id
  std::vector<SessionRow> sessions;        // by row id
  std::map<std::string, SyncRow> syncs;    // by user
  int64_t largest_id = 0;  // the largest that a message ever had; ids are not used again
};

// The bits of set_session_time()'s profile.
constexpr int kHistory = 1;
constexpr int kInsertOnly = 2;
constexpr int kOwnTime = 4;

// The operations have the names, parameters and order of the store's.
class Model {
 public:
  // ---- Lifecycle --------------------------------------------------------------------------------

  bool open(const std::string& user);
  void close();
  void clear_sendstatus(bool exist_tmp_table);

  bool is_open() const { return open_; }
  const std::string& user() const { return user_; }

  // ---- What a second connection does and sees ---------------------------------------------------

  // Adds a row, or replaces the row with its key; assigns `row_id`. Only outside a transaction.
  void plant(const MessageRow& row);
  void plant(const SessionRow& row);

  const Tables& tables() const { return tables_; }
  const Tables& committed() const { return in_transaction_ ? before_ : tables_; }
  bool in_transaction() const { return in_transaction_; }

  // ---- Transactions and sync times --------------------------------------------------------------

  bool start_transaction();
  bool commit_transaction();
  bool set_sync_time(int64_t sync_time, bool is_receive);
  bool get_sync_time(int64_t* recv_time, int64_t* sent_time) const;

  // ---- Saving messages --------------------------------------------------------------------------

  int64_t save_message(const std::string& session_id, Corvan::SessionType session_type,
                       const std::string& object_name, const std::string& sender,
                       const std::string& content, bool is_receive, int32_t sent_status,
                       int32_t read_status, bool is_mention, int64_t sent_time, int64_t client_uid,
                       const std::string& server_uid, bool history, bool insert_only,
                       bool is_count);
  bool save_message(const std::vector<std::unique_ptr<Corvan::MessageResponse>>& msg);
  bool is_message_exist(const std::string& session_id, Corvan::SessionType session_type,
                        int64_t timestamp);
  // The order in which the store appends is not defined; the model appends in ascending order.
  bool is_message_exist(const std::string& msg_uid, std::vector<std::string>& exist_uid);
  bool is_message_exist(std::vector<Corvan::UpdateValue>& msg);
  void set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time, const std::string& msg_uid);
  void set_send_time_for_dup_msg(const std::vector<Corvan::UpdateValue>& msg);
  bool is_message_exist(const std::string& msg_uid);
  bool is_message_exist(int64_t client_uid, const std::string& sender_id,
                        const std::string& session_id, int32_t session_type, int64_t& msg_id,
                        std::string& msg_uid);

  // ---- Message state ----------------------------------------------------------------------------

  void set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                     const std::string& session_id, Corvan::SessionType session_type,
                     int32_t fail_reason);
  bool update_sent_status(int64_t msg_id, int32_t sent_status);
  bool set_read_status(int64_t msg_id, int32_t read_status);
  bool update_message_receipt_status(const std::string& session_id,
                                     Corvan::SessionType session_type, int64_t sent_time);
  bool set_message_content(int64_t msg_id, const std::string& content,
                           const std::string& object_name);
  void get_client_uid(const std::string& session_id, Corvan::SessionType session_type,
                      int64_t& client_uid);
  void get_client_uid(int64_t msg_id, int64_t& client_uid);
  int32_t set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                       int32_t fail_reason);
  // `column` is the column that the caller's statement sets; the call fails if there is none.
  bool common_message_int(int64_t msg_id, int32_t value, const std::string& column);
  bool common_message_text(int64_t msg_id, const std::string& value, const std::string& column);

  // ---- Deleting and clearing messages -----------------------------------------------------------

  bool delete_message(const std::vector<int64_t>& msg_id_v);
  void delete_message(const std::string& session_id, Corvan::SessionType session_type,
                      const std::vector<std::string>& msg);
  bool clear_message(const std::string& session_id, Corvan::SessionType session_type, bool clean);
  bool clear_message_by_timestamp(int64_t sent_time, bool clean);
  bool delete_message(const std::string& session_id, int32_t session_type);

  // ---- Message queries --------------------------------------------------------------------------

  bool get_message_by_id(Corvan::MessageResponse& msg);
  bool get_message_by_uid(Corvan::MessageResponse& msg);
  bool get_history_message_by_object_name(const std::string& session_id,
                                          Corvan::SessionType session_type,
                                          const std::vector<std::string>& object_name,
                                          int64_t message_id, int32_t count,
                                          std::vector<Corvan::MessageResponse>& msg, bool desc);
  bool get_history_message_by_time(const std::string& session_id, Corvan::SessionType session_type,
                                   const std::string& object_name, int64_t search_time,
                                   int32_t count, std::vector<Corvan::MessageResponse>& msg,
                                   bool desc);
  bool get_mention_message(const std::string& session_id, Corvan::SessionType session_type,
                           std::vector<Corvan::MessageResponse>& msg);
  bool get_matched_message(const std::string& session_id, Corvan::SessionType session_type,
                           int64_t sent_time, int32_t left_count, int32_t right_count,
                           std::vector<Corvan::MessageResponse>& msg);
  void get_max_time(int64_t& sent_time, Corvan::SessionType session_type,
                    const std::string& session_id, int32_t type);
  int64_t get_max_message_id(Corvan::SessionType session_type, const std::string& session_id,
                             int32_t type);
  bool query_message(Corvan::MessageResponse& msg, bool by_uid);
  bool get_message_by_id(int64_t msg_id, std::string& session_id, int32_t& session_type,
                         bool& is_unread, bool& is_mention, int64_t& sent_time);
  void get_maxtime(int64_t& sent_time, Corvan::SessionType session_type,
                   const std::string& session_id, int32_t type);

  // ---- Read state and send time -----------------------------------------------------------------

  int64_t get_send_time(int64_t msg_id);
  bool update_message_status(const std::string& session_id, int32_t session_type);
  void get_readtime(const std::string& session_id, int32_t session_type, int64_t& read_time);

  // ---- Conversation rows and settings -----------------------------------------------------------

  bool set_is_top(const std::string& session_id, Corvan::SessionType session_type, bool is_top,
                  bool create);
  bool set_message_draft(const std::string& session_id, Corvan::SessionType session_type,
                         const std::string& draft);
  bool get_message_draft(const std::string& session_id, Corvan::SessionType session_type,
                         std::string& draft);
  bool set_silence(const std::string& session_id, Corvan::SessionType session_type, int32_t status);
  bool get_silence(const std::string& session_id, Corvan::SessionType session_type,
                   int32_t& status);
  bool remove_session(const std::string& session_id, Corvan::SessionType session_type);
  bool clear_session(const std::vector<Corvan::SessionType>& entry);
  // The caller's statement sets `column` to 7; the call fails if there is no such column.
  bool common_session_operation(const std::string& session_id, int32_t session_type,
                                const std::string& column);
  bool is_session_exist(const std::string& session_id, int32_t session_type);
  bool add_session(const std::string& session_id, Corvan::SessionType session_type,
                   int64_t create_time, int64_t msg_id, const std::string& name, int32_t count,
                   int32_t mention);
  void set_session_time(const std::string& session_id, Corvan::SessionType session_type,
                        int64_t sent_time, const std::string& object_name, int64_t msg_id,
                        int32_t unread, int32_t mention, uint32_t profile);
  void set_sessiontime(int64_t sent_time, int64_t msg_id, const std::string& session_id,
                       Corvan::SessionType session_type);
  void get_sessiontime(const std::string& session_id, int32_t session_type, int64_t& time,
                       int64_t& msg_id, int32_t& unread, int32_t& mention);
  bool delete_session(const std::string& session_id, int32_t session_type);

  // ---- Conversation list ------------------------------------------------------------------------

  bool get_session_list_by_page(const std::vector<Corvan::SessionType>& entry, int64_t sent_time,
                                int32_t limit, std::vector<Corvan::SessionInfo>& session);
  bool get_session(Corvan::SessionInfo& session);
  bool load_session(std::vector<Corvan::Session>& session, std::string& session_type,
                    int64_t timestamp, int32_t limit, bool is_top);
  bool load_session(Corvan::Session& conv, const std::string& session_id, int32_t session_type);
  bool load_message(std::vector<Corvan::Session>& session, const std::string& msg_id);
  bool load_message(Corvan::Session& conv);
  bool load_distinct_session_with_unread(std::vector<Corvan::Session>& session,
                                         const std::string& msg_id);
  bool load_session_with_latestid(std::vector<Corvan::Session>& session, const std::string& msg_id);
  bool get_message_latestid(const std::string& session_id, int32_t session_type, int64_t& msg_id,
                            int64_t& sent_time);
  bool set_message_latestid(const std::string& session_id, int32_t session_type, int64_t msg_id,
                            int64_t sent_time);

  // ---- Counters, read and receipt times ---------------------------------------------------------

  bool sync_unread(const std::string& session_id, int32_t session_type, int64_t send_time);
  bool clear_unread(const std::string& session_id, Corvan::SessionType session_type);
  void get_receipt_time(const std::string& session_id, int32_t session_type, int64_t& receipt_time);
  bool get_total_unread_count(int32_t& unread);
  bool get_unread_count(const std::string& session_id, Corvan::SessionType session_type,
                        int32_t& unread);
  bool get_message_count(const std::string& session_id, Corvan::SessionType session_type,
                         int32_t& unread);
  bool get_cate_unread_count(const std::vector<Corvan::SessionType>& entry, int32_t& unread,
                             bool with_dnd);
  bool get_unread_mention_count(const std::vector<Corvan::SessionType>& entry, int32_t& unread,
                                int32_t& mention);
  bool set_unread_by_value(const std::string& session_id, int32_t session_type, int32_t unread,
                           int32_t mention);
  bool get_unred_mention(const std::string& session_id, int32_t session_type, int64_t send_time,
                         int32_t& unread, int32_t& mention);
  void set_unread_readtime(const std::string& session_id, int32_t session_type, int64_t read_time);
  void set_receipttime(const std::string& session_id, int32_t session_type, int64_t receipt_time);
  void get_receipttime(const std::string& session_id, int32_t session_type, int64_t& receipt_time);

 private:
  bool insert(MessageRow row);
  void insert(SessionRow row);
  void roll_back();
  bool compact() const;

  MessageRow* message(int64_t id);
  SessionRow* session(const std::string& session_id, int64_t session_type);
  // The messages of one conversation, oldest first; among equal times the smaller id first.
  std::vector<MessageRow*> messages(const std::string& session_id, int64_t session_type);
  // The newest of them among those that get_maxtime() chooses by `type`; null if there is none.
  const MessageRow* newest(const std::string& session_id, int64_t session_type, int32_t type);
  const MessageRow* first_of(const std::string& server_uid) const;
  const MessageRow* first_of(const std::string& session_id, int64_t session_type,
                             int64_t client_uid, const std::string& sender) const;

  bool open_ = false;
  std::string user_;
  Tables tables_;
  Tables before_;  // the tables when the transaction began
  bool in_transaction_ = false;
  int64_t last_insert_ = 0;      // the row id of the connection's last insert, into any table
  bool page_ended_top_ = false;  // whether the last page of the list ended among the pinned
};

}  // namespace corvan_test

#endif  // TESTS_MODEL_MODEL_H_
