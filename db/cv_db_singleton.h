/// @file
/// The message store of one signed-in user. This is the only header that a program includes.
///
/// It keeps messages, conversations with their settings and counters, and read, receipt and sync
/// times in one SQLite file. It neither interprets message bodies nor keeps user profiles.

#ifndef DB_CV_DB_SINGLETON_H_
#define DB_CV_DB_SINGLETON_H_

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "base/pathname.h"
#include "db/cv_db_records.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Corvan {

/// The store: one object per process, one connection per object, one file per connection.
///
/// The sections have the same order in the unit and in tests/db. Building blocks are what the
/// operations above them are made of; they are public, but skip the bookkeeping around them.
///
/// Lifetime: get_instance() creates the object, init_open_db() opens the user's file, close_db() or
/// delete_instance() closes it. Close the store before you open it for another user.
///
/// Keys and units: a conversation is identified by its id and its kind (`session_type`). Message
/// ids are row ids, from 1. "32-bit id" means that ids above 2,147,483,647 are returned truncated.
/// Times are milliseconds of Corvan::Timestamp(); the store only compares, orders and stores them.
/// Texts are UTF-8 and end at their first zero byte.
///
/// Results: a failed operation returns false or the value that its comment names. Void operations
/// only log their failures. An update or deletion that matches no row succeeds unless its comment
/// says otherwise. If nothing is found or the operation fails, out-parameters do not change.
///
/// Lists: results are appended to the caller's vector, which is never cleared. "Returns non-empty"
/// means: returns whether the vector has elements afterwards. A negative limit means no limit.
///
/// SQL text: a parameter described as SQL text becomes part of a statement as it is, without
/// escaping. The caller must make sure that it is safe.
///
/// Errors: SQLite failures are logged. If a read fails in the middle, the rows read so far are the
/// result. Without an open connection, whatever needs the file fails with false, -1, 0 or an empty
/// result and logs no error; a call that has nothing to write may still succeed. Only
/// std::bad_alloc can leave an operation, after its statements are finalised and its transaction is
/// ended. A missing statement or connection where one is required aborts the process.
///
/// Partial success: some operations return success although a step inside them, or their commit,
/// failed. Their comments say "Success may be partial"; docs/reliability.md lists the cases.
///
/// Failed writes: a write whose commit fails with SQLite's code 10 (it could not be synced) or 7
/// (out of memory right after the sync) is rolled back, but can be stored after a restart. Look for
/// it then before you repeat it; docs/reliability.md says how.
///
/// Damage: if SQLite reports the file as damaged (11) or not a database (26) while preparing a
/// statement, the store closes itself and deletes the file that open_db() opened last.
///
/// Transactions: an operation marked "One transaction" begins and commits its own. Inside a
/// transaction of the caller, it commits the caller's.
///
/// Threads: the store takes no lock; SQLite serialises statements on the one connection. Reads and
/// single writes may come from several threads. Creating, opening, closing and deleting the store,
/// explicit transactions and paging the conversation list need one thread or a lock of the caller.
/// - A statement of any thread joins the transaction that is open, whoever started it.
/// - Statements of other threads can run between the statements of one operation.
/// - While other threads insert, the id that a save returns, and stores as its conversation's
///   newest message, can be one of theirs. The error text can be another thread's too.
/// - Do not close the store while another thread is using it; the result is undefined. The same
///   holds if the store closes itself because the file is damaged.
class CvDbSingleton {
 public:
  CvDbSingleton(const CvDbSingleton&) = delete;
  CvDbSingleton& operator=(const CvDbSingleton&) = delete;

  /// @name Lifecycle and opening
  /// @{

  /// The only instance, created by the first call; never null. The store owns it.
  static CvDbSingleton* get_instance();

  /// Closes and destroys the instance, if there is one. Pointers to it become invalid.
  static void delete_instance();

  /// Opens the file "corvan" in the folder of `db_path` for `user_id`. Creates the file and its
  /// schema if needed, and marks every message still being sent as failed. If the store is open for
  /// this user already and the folder contains "corvan" or "corvan.db", only this marking is done,
  /// in the open file. `db_path` is a folder if it ends with the delimiter; otherwise its last
  /// component is treated as a file name and replaced. `app_key` is not used.
  ///
  /// False only if SQLite cannot open the file; the store is closed then. Success may be partial:
  /// if the file was damaged, it has been deleted, the store is closed, and the next call starts a
  /// new file. Close the store first if it is open for another user or its files were removed (else
  /// the old connection leaks), and after std::bad_alloc (else the file may stay without tables).
  /// @snippet operations.cpp init_open_db
  bool init_open_db(const cvrtc::Pathname& db_path, const std::string& app_key,
                    const std::string& user_id);

  /// Closes the connection, if any. Open statements are interrupted and no longer the store's.
  void close_db();

  /// The schema's version text; empty if the file has none.
  std::string get_database_version();

  /// Whether a table of this name exists. `name` is SQL text inside a literal.
  bool is_table_exist(const std::string& name);

  /// Runs SQLite's integrity check and appends its findings to `result`, joined by "_". Pass an
  /// empty text: true then means that the file is sound and `result` is "ok". If the check cannot
  /// be prepared, `result` becomes "not a database file", and a damaged file is deleted as always.
  bool check_integrity(std::string& result);

  /// Reads the file's schema table and returns SQLite's result code: 0 if the file can be read, 26
  /// if it is not a database, 21 without an open connection. `password` is not used.
  int32_t is_db_unlocked(const std::string& password);

  /// Copies schema and rows of an older store, which the caller attaches as "odb" and detaches
  /// later. Rows with equal keys are replaced, ids are kept, and the older store's user_version is
  /// taken over if it is above 0. One transaction. The statements in "odb" that create its tables
  /// and indexes are SQL text. If "odb" is found damaged, this store's own file is deleted.
  void createdb_copydata();

  /// @} @name Lifecycle and opening: building blocks
  /// @{

  /// Opens the last init_open_db()'s file: SQLite's result code. A failure closes the store.
  int32_t open_db();

  /// Opens `file_name` and returns SQLite's result code. A connection that is open is not closed.
  /// The caller must close the new one, even after a failure. If this file is found damaged, the
  /// file that open_db() without a name opened last is deleted instead.
  int32_t open_db(const std::string& file_name);

  /// Whether a regular file exists at this path.
  static bool is_file_exist(const cvrtc::Pathname& path_name);

  /// Marks every message being sent (1) as failed (2). The flag is not used.
  void clear_sendstatus(bool exist_tmp_table);

  /// @} @name Transactions and sync times
  /// @{

  /// Begins a transaction. False if one is open already; that one stays open.
  /// @snippet operations.cpp start_transaction
  bool start_transaction();

  /// Commits; if that fails, rolls back and returns false. If SQLite can do neither (out of
  /// memory), the transaction stays open until a commit or close_db().
  bool commit_transaction();

  /// Moves the user's mark of received (`is_receive`) or sent messages forward to `sync_time`.
  /// False, with nothing written, if the mark is there already or later. If the marks cannot be
  /// read, both count as 0, a warning is logged, and the other mark is overwritten with 0.
  /// @snippet operations.cpp set_sync_time
  bool set_sync_time(int64_t sync_time, bool is_receive);

  /// Reads the user's marks; true also if none are stored yet. Only `sent_time` may be null.
  bool get_sync_time(int64_t* recv_time, int64_t* sent_time);

  /// @} @name Saving messages
  /// @{

  /// Stores one message and updates or creates its conversation. Returns its id, or -1 if nothing
  /// was stored: the insert failed, or a message with this server uid, or this conversation, client
  /// uid and sender, exists. If it has a server uid, is_message_exist(server_uid) tells which.
  ///
  /// A message that is found by its client uid and has no server uid yet is completed: it is marked
  /// as sent, with `server_uid` and `sent_time`, and its id is returned (32-bit id). Own messages
  /// are looked up under the signed-in user's id. `history` (fetched, not live) and `insert_only`
  /// (keep the conversation from moving back) skip the lookup by client uid.
  ///
  /// `read_status` is ignored: own messages and messages in chat rooms are stored as read (1), all
  /// others as unread (0). A `sent_time` below 1 is replaced by the current time. `is_count` adds 1
  /// to the unread messages and `is_mention` 1 to the mentions: see set_session_time().
  ///
  /// Not one transaction: two threads can store the same message twice. Success may be partial.
  /// @snippet operations.cpp save_message
  int64_t save_message(const std::string& session_id, SessionType session_type,
                       const std::string& object_name, const std::string& sender,
                       const std::string& content, bool is_receive, int32_t sent_status,
                       int32_t read_status, bool is_mention, int64_t sent_time, int64_t client_uid,
                       const std::string& server_uid, bool history, bool insert_only,
                       bool is_count);

  /// Inserts the records with `is_store_` set and an `msg_id_` below 0 as they are: no duplicate
  /// test, no mention flag, no update of conversations. Each inserted record receives its id,
  /// others below 0 receive 0. Pointers must not be null. False only if the statement cannot be
  /// prepared. Success may be partial: if an insert fails, its record gets the id of the one
  /// before.
  bool save_message(const std::vector<std::unique_ptr<MessageResponse>>& msg);

  /// Whether the conversation has, after `timestamp`, a received message or a covered own one (3).
  bool is_message_exist(const std::string& session_id, SessionType session_type, int64_t timestamp);

  /// Appends to `exist_uid` those of the given server uids that are stored. `msg_uid` is SQL text:
  /// a list of quoted texts separated by commas. True if the query ran.
  bool is_message_exist(const std::string& msg_uid, std::vector<std::string>& exist_uid);

  /// Looks up each element by conversation, client uid (0 and below too) and sender. Fills
  /// `msg_id_` (32-bit id) and `server_uid_old_` of those that are stored. True if any is.
  bool is_message_exist(std::vector<UpdateValue>& msg);

  /// Marks a message as sent, with this server uid and time.
  void set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time, const std::string& msg_uid);

  /// Marks each element's message as sent, with `server_uid_new_` and `sent_time_`, if its
  /// `msg_id_` is above 0 and its `server_uid_old_` is empty.
  void set_send_time_for_dup_msg(const std::vector<UpdateValue>& msg);

  /// @} @name Saving messages: building blocks
  /// @{

  /// Whether a message with this server uid is stored. An empty uid matches nothing.
  bool is_message_exist(const std::string& msg_uid);

  /// Looks up a message by conversation, client uid and sender, and fills its id (32-bit id) and
  /// server uid. False if there is none, or if `client_uid` is below 1.
  bool is_message_exist(int64_t client_uid, const std::string& sender_id,
                        const std::string& session_id, int32_t session_type, int64_t& msg_id,
                        std::string& msg_uid);

  /// @} @name Message state
  /// @{

  /// Stores the server's answer to a send: sent if `fail_reason` is 0, otherwise failed. A
  /// non-empty `msg_uid` and a `sent_time` above 0 are stored too; such a time also moves the
  /// conversation, even if the send failed. One transaction.
  /// @snippet operations.cpp set_send_time
  void set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                     const std::string& session_id, SessionType session_type, int32_t fail_reason);

  /// Writes a sending state.
  bool update_sent_status(int64_t msg_id, int32_t sentStatus);

  /// Writes a read state and clears the mention flag. Corrects the conversation's counters if an
  /// unread message (0) becomes read (1 or more) or vice versa. One transaction; false if there is
  /// no such message. Success may be partial.
  /// @snippet operations.cpp set_read_status
  bool set_read_status(int64_t msg_id, int32_t read_status);

  /// Applies the peer's receipt for everything up to `sent_time`: own sent messages (0) after the
  /// stored receipt time and up to `sent_time` become covered (3), and the receipt time moves
  /// forward. If `sent_time` is not later than the stored one, every own sent message up to
  /// `sent_time` is covered and the receipt time stays. Success may be partial.
  /// @snippet operations.cpp update_message_receipt_status
  bool update_message_receipt_status(const std::string& session_id, SessionType session_type,
                                     int64_t sent_time);

  /// Replaces a message's body. A non-empty `object_name` replaces its kind and clears the mention.
  bool set_message_content(int64_t msg_id, const std::string& content,
                           const std::string& object_name);

  /// Reads the client uid of the conversation's newest message in the sent state (0), own or not.
  void get_client_uid(const std::string& session_id, SessionType session_type, int64_t& client_uid);

  /// Reads the client uid of a message.
  void get_client_uid(int64_t msg_id, int64_t& client_uid);

  /// @} @name Message state: building blocks
  /// @{

  /// The part of set_send_time() that updates the message: 101, or SQLite's code of the failure.
  int32_t set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                       int32_t fail_reason);

  /// Runs `sql`, SQL text of one statement with two parameters: a value, then a message id.
  bool common_message_int(int64_t msg_id, int32_t value, const std::string& sql);

  /// Like common_message_int(), with a text as the value. `sql` is SQL text.
  bool common_message_text(int64_t msg_id, const std::string& value, const std::string& sql);

  /// @} @name Deleting and clearing messages
  /// @{

  /// Deletes messages by id; ids below 1 are skipped. If a conversation loses unread messages,
  /// lowers its counters by the unread messages and mentions that it loses, as
  /// load_distinct_session_with_unread() counts them. A conversation whose newest message is
  /// deleted gets the newest remaining one. One transaction. Success may be partial.
  /// @snippet operations.cpp delete_message
  bool delete_message(const std::vector<int64_t>& msg_id_v);

  /// Deletes messages by server uid, in any conversation, and updates the newest message of the
  /// named conversation, not the counters. The uids are SQL text inside literals. An empty uid
  /// matches every message without a server uid.
  void delete_message(const std::string& session_id, SessionType session_type,
                      const std::vector<std::string>& msg);

  /// Deletes all messages of a conversation. Its row, time and counters stay, without a newest
  /// message. With `clean`, compacts the file and returns that result. Success may be partial.
  bool clear_message(const std::string& session_id, SessionType session_type, bool clean);

  /// Deletes every message sent before `sent_time`, in all conversations, without changing their
  /// rows. With `clean`, compacts the file too. The result is that of the deletion.
  bool clear_message_by_timestamp(int64_t sent_time, bool clean);

  /// @} @name Deleting and clearing messages: building blocks
  /// @{

  /// Deletes all messages of a conversation and nothing else.
  bool delete_message(const std::string& session_id, int32_t session_type);

  /// @} @name Message queries
  /// @{

  /// Fills `msg` from the row of its `msg_id_`. False if there is none.
  bool get_message_by_id(MessageResponse& msg);

  /// Fills `msg` from the row of its `server_uid_` (32-bit id). False if there is none.
  bool get_message_by_uid(MessageResponse& msg);

  /// Appends one page of history: up to `count` messages before the time of message `messageId`,
  /// newest first (`desc`), or after it, oldest first; messages with exactly this time are skipped.
  /// 0 starts after the newest message; an id that is not stored means time 0. Names in
  /// `object_name` restrict the page to these kinds; empty names are ignored, and without a name
  /// all kinds match. The names are SQL text inside literals. Returns non-empty (32-bit ids).
  bool get_history_message_by_object_name(const std::string& session_id, SessionType session_type,
                                          const std::vector<std::string>& object_name,
                                          int64_t messageId, int32_t count,
                                          std::vector<MessageResponse>& msg, bool desc);

  /// Like get_history_message_by_object_name(), for one kind, or for all if `object_name` is empty;
  /// this name is SQL text inside a literal. Despite its name, `search_time` is a message id or 0.
  /// @snippet operations.cpp get_history_message_by_time
  bool get_history_message_by_time(const std::string& session_id, SessionType session_type,
                                   const std::string& object_name, int64_t search_time,
                                   int32_t count, std::vector<MessageResponse>& msg, bool desc);

  /// Inserts the ten newest mentions with direction 2 at the front of `msg`, oldest first. Only
  /// rows copied from an older store have this direction. Returns non-empty (32-bit ids).
  bool get_mention_message(const std::string& session_id, SessionType session_type,
                           std::vector<MessageResponse>& msg);

  /// One transaction that reads two pages as get_history_message_by_time() does. Up to `left_count`
  /// messages before message id `sent_time` are appended to `msg`. Up to `right_count` + 1 messages
  /// after a second message are inserted at the front, newest first; its id is the newest time of
  /// the first page, or `sent_time` - 1 if that page is empty. Returns non-empty (32-bit ids).
  bool get_matched_message(const std::string& session_id, SessionType session_type,
                           int64_t sent_time, int32_t left_count, int32_t right_count,
                           std::vector<MessageResponse>& msg);

  /// Reads the time of the conversation's newest message: of all messages (`type` 2), of the
  /// received ones (1), or of those in the sent state (0).
  void get_max_time(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                    int32_t type);

  /// The conversation's largest message id, with `type` as in get_max_time(); -1 if there is none.
  int64_t get_max_message_id(SessionType session_type, const std::string& session_id, int32_t type);

  /// @} @name Message queries: building blocks
  /// @{

  /// Does what get_message_by_uid() (`by_uid`) or get_message_by_id() does.
  bool query_message(MessageResponse& msg, bool by_uid);

  /// Reads a message's conversation, state and time. False if no such message exists.
  bool get_message_by_id(int64_t msg_id, std::string& session_id, int32_t& session_type,
                         bool& is_unread, bool& is_mention, int64_t& sent_time);

  /// Does what get_max_time() does.
  void get_maxtime(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                   int32_t type);

  /// @} @name Read state and send time
  /// @{

  /// A message's time; 0 if no such message exists.
  int64_t get_send_time(int64_t msg_id);

  /// Marks the received messages after the conversation's read time as read and clears their
  /// mention flags. Read states other than 0 stay, and so do the counters and the read time.
  bool update_message_status(const std::string& session_id, int32_t session_type);

  /// @} @name Read state and send time: building blocks
  /// @{

  /// Reads the time up to which the user has read the conversation.
  void get_readtime(const std::string& session_id, int32_t session_type, int64_t& read_time);

  /// @} @name Conversation rows and settings
  /// @{

  /// Pins or unpins a conversation. A missing one is created if both flags are set; otherwise
  /// nothing is written and the result is true. Success may be partial.
  bool set_is_top(const std::string& session_id, SessionType session_type, bool is_top,
                  bool create);

  /// Stores a draft and sets the conversation's time to now; an empty draft keeps the time. Without
  /// the conversation, an empty draft succeeds and any other fails. Success may be partial.
  bool set_message_draft(const std::string& session_id, SessionType session_type,
                         const std::string& draft);

  /// Always false: it reads a column that the schema does not have. get_session() reads the draft.
  bool get_message_draft(const std::string& session_id, SessionType session_type,
                         std::string& draft);

  /// Writes the do-not-disturb setting; 0 is off.
  bool set_silence(const std::string& session_id, SessionType session_type, int32_t status);

  /// Reads the do-not-disturb setting; a stored 1 is reported as 0. False if there is no such row.
  bool get_silence(const std::string& session_id, SessionType session_type, int32_t& status);

  /// Deletes the conversation's row, then marks its received messages as read. The result is that
  /// of the deletion. Success may be partial.
  bool remove_session(const std::string& session_id, SessionType session_type);

  /// Deletes every conversation of these kinds, then their messages. False if either fails; what
  /// succeeded is committed. One transaction. Success may be partial.
  bool clear_session(const std::vector<SessionType>& entry);

  /// Runs `sql`, SQL text of one statement with two parameters: a conversation's id and its kind.
  bool common_session_operation(const std::string& session_id, int32_t session_type,
                                const std::string& sql);

  /// @} @name Conversation rows and settings: building blocks
  /// @{

  /// Whether the conversation has a row; false also if the lookup fails.
  bool is_session_exist(const std::string& session_id, int32_t session_type);

  /// Creates a conversation's row with `name` as its title and these counters. A `create_time` of 0
  /// is replaced by the current time. False if the row exists already.
  bool add_session(const std::string& session_id, SessionType session_type, int64_t create_time,
                   int64_t msg_id, const std::string& name, int32_t count, int32_t mention);

  /// Moves a conversation to a message just saved, even back in time, and adds to its counters.
  /// `profile` combines bits 1 (history), 2 (insert only) and 4 (insert only with the caller's
  /// time). If the message is not newer than the conversation:
  /// - history changes nothing, not even the counters, if there is a newest message;
  /// - insert only keeps the conversation's time, and with the caller's time any newest message;
  /// - a message of kind "CV:QbNtf" keeps any newest message, whatever the bits.
  void set_session_time(const std::string& session_id, SessionType session_type, int64_t sent_time,
                        const std::string& object_name, int64_t msg_id, int32_t unread,
                        int32_t mention, uint32_t profile);

  /// Moves a conversation to a message whose time was corrected. Does nothing if the conversation
  /// is at that time or later and the id of its newest message is 0 or more.
  void set_sessiontime(int64_t sent_time, int64_t msg_id, const std::string& session_id,
                       SessionType session_type);

  /// Reads a conversation's time, newest message (32-bit id) and counters.
  void get_sessiontime(const std::string& session_id, int32_t session_type, int64_t& time,
                       int64_t& msg_id, int32_t& unread, int32_t& mention);

  /// Deletes the conversation's row; its messages stay.
  bool delete_session(const std::string& session_id, int32_t session_type);

  /// @} @name Conversation list
  /// @{

  /// Appends one page of the conversations of these kinds with their latest messages: pinned first,
  /// then newest first. Pass 0 as `sent_time` for the first page. For the next one, pass the
  /// smallest get_sessiontime() time among the entries whose `is_top_` equals the last entry's.
  /// Whether the last entry was pinned is remembered between calls, so only one reader per process
  /// can page at a time. False if nothing was appended. Success may be partial.
  ///
  /// An entry's `session_time` is the time of its latest message, or the conversation's own with a
  /// draft or without a message. Do not page by it: where it is later than the own time, pages
  /// repeat without end; where earlier, conversations are missed. `message_.sent_time_` is not set.
  /// 32-bit ids.
  /// @snippet operations.cpp get_session_list_by_page
  bool get_session_list_by_page(const std::vector<SessionType>& entry, int64_t sent_time,
                                int32_t limit, std::vector<SessionInfo>& session);

  /// Fills `session` from the row of its id and kind and from its latest message, whose time
  /// becomes `session_time`. False if there is no such row. 32-bit id.
  bool get_session(SessionInfo& session);

  /// @} @name Conversation list: building blocks
  /// A `session_type` or `msg_id` that is a text is SQL text: numbers separated by commas.
  /// @{

  /// Appends one page of rows without messages; `is_top` if the page before ended with a pinned
  /// one. Returns non-empty (32-bit ids).
  bool load_session(std::vector<Session>& session, std::string& session_type, int64_t timestamp,
                    int32_t limit, bool is_top);

  /// Fills `conv`, except its id and kind, from the row. False if there is none. 32-bit id.
  bool load_session(Session& conv, const std::string& session_id, int32_t session_type);

  /// Appends one element per message with these ids, under its conversation. True if the query ran.
  bool load_message(std::vector<Session>& session, const std::string& msg_id);

  /// Fills `conv` with the fields and time of message `latest_id_`. False if there is none.
  bool load_message(Session& conv);

  /// Counts unread messages and mentions among these messages, by conversation. Returns non-empty.
  /// A message is added to every element of its conversation. If it is unread or a mention, it is
  /// also appended unless the last element took it: unread ones of A, B, A give A 2, B 1, A 1.
  bool load_distinct_session_with_unread(std::vector<Session>& session, const std::string& msg_id);

  /// Appends the keys of the conversations whose newest message is one of these. Returns non-empty.
  bool load_session_with_latestid(std::vector<Session>& session, const std::string& msg_id);

  /// Reads id (32-bit id) and time of the conversation's newest message; true also if it has none.
  bool get_message_latestid(const std::string& session_id, int32_t session_type, int64_t& msg_id,
                            int64_t& sent_time);

  /// Sets a conversation's newest message and, if `msg_id` is above 0, its time.
  bool set_message_latestid(const std::string& session_id, int32_t session_type, int64_t msg_id,
                            int64_t sent_time);

  /// @} @name Counters, read and receipt times
  /// @{

  /// Recounts both counters from the unread messages with direction 2 sent after `sendTime`, which
  /// becomes the read time. The store itself never writes this direction.
  bool sync_unread(const std::string& session_id, int32_t session_type, int64_t sendTime);

  /// Marks a conversation as read: received messages after the read time become read, the counters
  /// become 0, and the read time becomes the time of the newest received message, or 0. If the
  /// marking fails, returns false and keeps the counters. One transaction. Success may be partial.
  /// @snippet operations.cpp clear_unread
  bool clear_unread(const std::string& session_id, SessionType session_type);

  /// Reads the time up to which the peer has read.
  void get_receipt_time(const std::string& session_id, int32_t session_type, int64_t& receipt_time);

  /// Unread messages of all conversations; 0 if there are none. This operation and the next four
  /// return false only if their statement cannot be prepared, so success may be partial.
  bool get_total_unread_count(int32_t& unread);

  /// Unread messages of one conversation; `unread` is kept if there is no such conversation.
  bool get_unread_count(const std::string& session_id, SessionType session_type, int32_t& unread);

  /// Stores the number of all messages of the conversation, read or not, in `unread`.
  bool get_message_count(const std::string& session_id, SessionType session_type, int32_t& unread);

  /// Unread messages of the conversations of these kinds, or of all kinds if `entry` names none.
  /// Muted conversations count only with `with_dnd`.
  bool get_cate_unread_count(const std::vector<SessionType>& entry, int32_t& unread, bool with_dnd);

  /// Like get_cate_unread_count() with muted conversations; counts the unread mentions too.
  /// @snippet operations.cpp get_unread_mention_count
  bool get_unread_mention_count(const std::vector<SessionType>& entry, int32_t& unread,
                                int32_t& mention);

  /// @} @name Counters, read and receipt times: building blocks
  /// @{

  /// Lowers the counters by these values, also below 0. An `unread` of 0 changes nothing; any
  /// negative one raises the unread count by 1. A `mention` below 1 keeps the mentions.
  bool set_unread_by_value(const std::string& session_id, int32_t session_type, int32_t unread,
                           int32_t mention);

  /// The recount of sync_unread(); both counts are 0 if there is no such message.
  bool get_unred_mention(const std::string& session_id, int32_t session_type, int64_t sendTime,
                         int32_t& unread, int32_t& mention);

  /// Sets both counters to 0 and writes the read time.
  void set_unread_readtime(const std::string& session_id, int32_t session_type, int64_t read_time);

  /// Writes the time up to which the peer has read, even an earlier one.
  void set_receipttime(const std::string& session_id, int32_t session_type, int64_t receipt_time);

  /// Does what get_receipt_time() does.
  void get_receipttime(const std::string& session_id, int32_t session_type, int64_t& receipt_time);

  /// @} @name Statement layer: building blocks
  /// Parameters count from 1, columns from 0. Results are SQLite's result codes, or -1 without an
  /// open connection. A null `stmt`, or running a text without a statement, aborts the process.
  /// @{

  /// Prepares one statement. Returns the handle, which the caller passes to finalize(), or null
  /// after a failure or for a text without a statement. `success` receives 0 or the code of the
  /// failure. `query` is SQL text; anything after its first statement is ignored.
  sqlite3_stmt* prepare_sql(const std::string& query, int32_t& success);

  /// Binds a 32-bit integer.
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, int32_t value);
  /// Binds a 64-bit integer.
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, int64_t value);
  /// Binds a text, up to its first zero byte. The text is not copied: it must stay alive and
  /// unchanged until the statement is finalised or the parameter is bound again.
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, const std::string& value);

  /// Steps once, without a retry: 100 for a row, 101 for done, less than 100 for a failure. With
  /// `finaled`, finalises the statement too, whatever the result.
  int32_t step(sqlite3_stmt* stmt, bool finaled);

  /// Makes the statement ready to run again and keeps its bindings.
  void reset(sqlite3_stmt* stmt);

  /// Finalises the statement; unlike elsewhere, null is allowed.
  void finalize(sqlite3_stmt* stmt);

  /// A column of the current row as a 32-bit integer; 0 for NULL.
  static int32_t get_int(sqlite3_stmt* stmt, int32_t index);
  /// A column of the current row as a 64-bit integer; 0 for NULL.
  static int64_t get_int64(sqlite3_stmt* stmt, int32_t index);
  /// A column of the current row as a text; empty for NULL.
  static const std::string get_text(sqlite3_stmt* stmt, int32_t index);

  /// The connection's last error text. Aborts the process without an open connection.
  const std::string get_error();

  /// Runs one statement and ignores its rows: 101 if it is done, 100 if it gave a row, else the
  /// code of the failure. `sql` is SQL text.
  int32_t execute_none_query(const std::string& sql);

  /// The first column of the first row as an integer, -1 without one. `pragma` is SQL text.
  int32_t get_pragma(const std::string& pragma);

  /// Replaces `str` by the number in plain decimal, whatever the global locale is.
  static void number_to_string(std::string& str, int64_t number);
  /// The same for every other integer type whose values fit in int64_t.
  template <typename Integer>
  static void number_to_string(std::string& str, Integer number) {
    static_assert(std::is_integral<Integer>::value, "only whole numbers are written");
    static_assert(std::is_signed<Integer>::value || sizeof(Integer) < sizeof(int64_t),
                  "the number must fit in 64 bits with a sign");
    number_to_string(str, static_cast<int64_t>(number));
  }

  /// Prepares `keyword` for a LIKE pattern inside an SQL literal: puts a backslash before "_" and
  /// "%" and doubles quotes. A backslash stays as it is. If a backslash was added, sets `flag`; the
  /// LIKE clause must then name the backslash as its escape character. `flag` is never cleared.
  static std::string escape_char(const std::string& keyword, bool& flag);

  /// Appends the kinds from 1 to 5 to `type`, separated by commas; other values are skipped.
  void join_type(const std::vector<SessionType>& entry, std::string& type);

  /// @}

 private:
  friend struct CvDbPreparing;  // lets the unit's own statements use prepare()

  CvDbSingleton() = default;
  ~CvDbSingleton();

  // Does what prepare_sql() does, without copying a literal.
  sqlite3_stmt* prepare(const char* query, int32_t& success);

  static CvDbSingleton* instance_;

  sqlite3* db_ = nullptr;        // the open connection; null when closed
  cvrtc::Pathname local_path_;   // the file of the last init_open_db()
  cvrtc::Pathname local_path8_;  // the file open_db() opened last; deleted if found damaged
  std::string user_id_;          // the user whose database is open
  [[maybe_unused]] bool corrupt_ = false;  // never set
};

}  // namespace Corvan

#endif  // DB_CV_DB_SINGLETON_H_
