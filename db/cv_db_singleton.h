// The message store of one signed-in user: all that a caller includes.
//
// Stored in one SQLite file: messages, conversations with their settings and counters, read and
// receipt times, sync times. Not stored: who a user is, what a message body means, anything that
// the network layer can ask for again.

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

// The store. One object a process, one connection an object, one file a connection.
//
// Reading this class: each section is one subject, in the same order here, in the unit and in
// tests/db. A section first lists the operations for callers, then, under "Building blocks", what
// those operations are made of; blocks are reachable too, and skip the bookkeeping that the
// operations around them do.
//
// Lifetime: get_instance() creates the object, init_open_db() opens the user's file, close_db() or
// delete_instance() closes it. A caller that switches users closes the store first.
//
// Errors: returned, not thrown. `bool` operations return false; the others say below what they
// return. With no open connection whatever needs the file fails at once and without an error line:
// false, -1, 0 or an empty result; a call that has nothing to write may still succeed. An SQLite
// failure is logged and returned; only one that ends a read in the middle is logged alone, and what
// was read until then is the result. Unless an operation says otherwise, an out-parameter keeps the
// caller's value when nothing was found or the operation failed. Only std::bad_alloc may leave an
// operation, which then has finalised its statements and ended its transaction.
// A write that fails because its commit cannot be synced (SQLite's code 10), or because memory ends
// right after that (7), is rolled back, but it stays in the write-ahead log. If the process is then
// killed, the next opening finds the write committed. The next commit that succeeds takes it away,
// and so does closing the store, unless that fails or another process has the file open. After a
// restart, look whether such a write is there before you repeat it.
// A missing statement or connection where one is required is a programming error and aborts the
// process. When SQLite calls the open file damaged (11) or not a database (26) while a statement is
// being prepared, the connection is closed and the file that open_db() opened last is deleted: the
// next init_open_db() starts an empty one.
//
// Lists: results are appended to the caller's vector, which is never cleared, and an operation that
// says "non-empty" answers whether the vector holds anything afterwards. A negative count or limit
// sets none.
//
// Threads: the store takes no lock. SQLite serialises statements on the one connection, so reads
// and single writes may come from several threads; creating, opening, closing and deleting the
// object, explicit transactions and paging the conversation list are driven from one thread or
// under the caller's own serialisation. A statement issued between start_transaction() and
// commit_transaction() joins the transaction, whichever thread issues it. An operation of several
// statements is no unit to other threads, and the last row id and the error text are the
// connection's: while others insert, the id that a save returns and makes its conversation's newest
// can be one of theirs. Closing while an operation runs on another thread is undefined, and so is
// meeting a damaged file then.
//
// Transactions: operations marked "one transaction" begin and commit one of their own. Called
// inside a caller's transaction they commit that one.
//
// Units: times are milliseconds of Corvan::Timestamp(); the store only compares, stores and orders
// them. Message ids are row ids, from 1. Texts are UTF-8 and end at their first zero byte.
// Operations that say "32-bit id" return an id through a 32-bit column reader: above 2,147,483,647
// it is truncated.
//
// A conversation is named by the pair of its id and its kind.
class CvDbSingleton {
 public:
  CvDbSingleton(const CvDbSingleton&) = delete;
  CvDbSingleton& operator=(const CvDbSingleton&) = delete;

  // ---- Lifecycle and opening --------------------------------------------------------------------

  // The one instance, created at the first call; never null. The store owns it.
  static CvDbSingleton* get_instance();

  // Closes and destroys the instance, if there is one. Pointers to it are dangling from then on.
  static void delete_instance();

  // Opens the file "corvan" in the folder of `db_path` for `user_id`, creating it and its schema
  // when it is new, and marks every message still being sent as failed. With the store already open
  // for this user, and "corvan" or "corvan.db" present in that folder, only that marking is done,
  // on the file that is open. `app_key` is accepted and not used.
  //
  // False only when SQLite cannot open the file; the store is then closed. True may also mean that
  // the file was found damaged and deleted just now: the store is closed as well, and a second call
  // starts a new file.
  //
  // A connection that is open for another user, or whose files are gone, is neither used further
  // nor closed: close the store before. So, too, after std::bad_alloc: an opening that it left may
  // have opened a file without tables.
  //
  // `db_path` is a folder when its text ends with the delimiter; of any other text the last
  // component is replaced by the file's name.
  bool init_open_db(const cvrtc::Pathname& db_path, const std::string& app_key,
                    const std::string& user_id);

  // Closes the connection; without one it does nothing. Statements that are still open are
  // interrupted, and no longer the store's.
  void close_db();

  // The schema's version text; empty when the file has none.
  std::string get_database_version();

  // Whether a table of this name exists. `name` is SQL text, the caller's duty: pasted into a
  // literal unescaped.
  bool is_table_exist(const std::string& name);

  // SQLite's integrity check. `result` is appended to: pass an empty text and true means that the
  // file is sound and `result` reads "ok"; otherwise `result` holds the findings joined by "_".
  // When the check cannot be prepared, "not a database file" replaces it; a damaged file is deleted
  // then, as with any statement.
  bool check_integrity(std::string& result);

  // Reads the file's schema table: the SQLite result code, 0 when the file can be read, 26 when it
  // is not a database, 21 with no open connection. `password` plays no part.
  int32_t is_db_unlocked(const std::string& password);

  // Copies schema and rows of an older store, which the caller has attached as "odb", into this
  // one; rows of equal keys are replaced, ids are kept, and its user_version is taken over when it
  // is above 0. One transaction. Attaching and detaching are the caller's; failures are logged
  // only. What creates the tables and indexes of "odb" is SQL text, the caller's duty: it runs here
  // as it stands in that file. Damage of that file, too, deletes the store's own.
  void createdb_copydata();

  // -- Building blocks --

  // Opens the file of the last init_open_db(): the SQLite result code, 0 for success. After a
  // failure the store is closed.
  int32_t open_db();

  // Opens `file_name`, whatever was open before: the SQLite result code. The connection is set even
  // after a failure; closing it is the caller's duty. When this file is found damaged, it is the
  // one that open_db() without a name opened last that is deleted.
  int32_t open_db(const std::string& file_name);

  // Whether a regular file exists there.
  static bool is_file_exist(const cvrtc::Pathname& path_name);

  // Marks every message being sent (1) as failed (2). The flag is not used.
  void clear_sendstatus(bool exist_tmp_table);

  // ---- Transactions and sync times --------------------------------------------------------------

  // Begins a transaction; false when one is open already, which stays open.
  bool start_transaction();

  // Commits. When that fails the transaction is rolled back and the answer is false; if it was the
  // sync that failed, the transaction may be there after a restart. One that SQLite can do neither
  // with, as when its memory ends, stays open: what follows joins it until the next commit or until
  // the store is closed.
  bool commit_transaction();

  // Moves the user's mark of received (`is_receive`) or sent messages forward to `sync_time`.
  // False, with nothing written, when the mark is not earlier than that. When the marks cannot be
  // read, a warning is logged, both count as 0, and the other mark is written as 0.
  bool set_sync_time(int64_t sync_time, bool is_receive);

  // The user's marks. True also when none are stored yet. `recv_time` must not be null, `sent_time`
  // may be.
  bool get_sync_time(int64_t* recv_time, int64_t* sent_time);

  // ---- Saving messages --------------------------------------------------------------------------

  // Stores one message and brings its conversation up to date, creating it at its first message.
  // Returns the message's id, or -1 when nothing was stored: a message of this server uid, or of
  // this conversation, client uid and sender, is there already, or the insert failed, which
  // is_message_exist(server_uid) tells apart for a message that the server has named. A message
  // found by its client uid that the server has not named yet is completed with `server_uid` and
  // `sent_time`, and its id returned (32-bit id). Own messages are looked up under the signed-in
  // user's id.
  //
  // If the sync of the insert failed, the message may be there after a restart, without its
  // conversation having been brought up to date. Saved again then, it is refused if it has a server
  // uid. If it is found by its client uid alone, it is completed, and so marked as sent. Otherwise
  // it is stored twice.
  //
  // The read status is derived: 1 for own messages and in chat rooms, else 0; `read_status` is not
  // stored. A `sent_time` below 1 becomes the clock's time. `history` (fetched, not live) and
  // `insert_only` (the conversation keeps a time that is not earlier) skip the test by client uid.
  // `is_count` counts one more unread message, `is_mention` one more unread mention;
  // set_session_time() says when they do not.
  //
  // Not one transaction: the tests, the message and its conversation are statements of their own,
  // so two threads that save one message at the same time can both store it.
  int64_t save_message(const std::string& session_id, SessionType session_type,
                       const std::string& object_name, const std::string& sender,
                       const std::string& content, bool is_receive, int32_t sent_status,
                       int32_t read_status, bool is_mention, int64_t sent_time, int64_t client_uid,
                       const std::string& server_uid, bool history, bool insert_only,
                       bool is_count);

  // Inserts the records of a stored kind (`is_store_`) whose `msg_id_` is below 0, as they are: no
  // duplicate test, no conversation, no mention flag. Each record inserted receives its id; a
  // record whose insert failed receives the id of the insert before it. Other records with an id
  // below 0 leave with 0. False only when the statement cannot be prepared. No pointer may be null.
  bool save_message(const std::vector<std::unique_ptr<MessageResponse>>& msg);

  // Whether the conversation has, after `timestamp`, a received message or an own one that the
  // peer's receipt covers.
  bool is_message_exist(const std::string& session_id, SessionType session_type, int64_t timestamp);

  // Appends to `exist_uid` those of the given server uids that are stored. `msg_uid`, a list of
  // quoted texts with commas between, is SQL text, the caller's duty. True when the query ran.
  bool is_message_exist(const std::string& msg_uid, std::vector<std::string>& exist_uid);

  // Looks each element up by conversation, client uid (0 and below too) and sender, and fills
  // `msg_id_` (32-bit id) and `server_uid_old_` of those that are stored. True when any is.
  bool is_message_exist(std::vector<UpdateValue>& msg);

  // Completes a message: sent, with this server uid and time.
  void set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time, const std::string& msg_uid);

  // Completes each message with an id above 0 whose `server_uid_old_` is empty, with its
  // `server_uid_new_` and `sent_time_`.
  void set_send_time_for_dup_msg(const std::vector<UpdateValue>& msg);

  // -- Building blocks --

  // Whether a message of this server uid is stored. The empty one matches nothing.
  bool is_message_exist(const std::string& msg_uid);

  // Whether a message of this conversation, client uid and sender is stored; its id (32-bit id) and
  // server uid. A client uid below 1 matches nothing.
  bool is_message_exist(int64_t client_uid, const std::string& sender_id,
                        const std::string& session_id, int32_t session_type, int64_t& msg_id,
                        std::string& msg_uid);

  // ---- Message state ----------------------------------------------------------------------------

  // The server's answer to a send: sent when `fail_reason` is 0, else failed. A `msg_uid` that is
  // not empty and a `sent_time` above 0 are stored too; such a time also moves the conversation,
  // for a failure as well. One transaction; failures are logged only.
  void set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                     const std::string& session_id, SessionType session_type, int32_t fail_reason);

  // Writes a sending state. True also when no such message exists.
  bool update_sent_status(int64_t msg_id, int32_t sentStatus);

  // Writes a read state and clears the mention flag. A change between unread (0) and read (1 or
  // more) corrects the conversation's counters. One transaction. False when no such message exists.
  bool set_read_status(int64_t msg_id, int32_t read_status);

  // The peer has read everything up to `sent_time`: own messages that the server accepted, sent
  // after the stored receipt time and up to `sent_time`, become covered (3), and the receipt time
  // moves forward. A time not later than the stored one covers every such message up to it and
  // moves nothing. True also when there is no such message.
  bool update_message_receipt_status(const std::string& session_id, SessionType session_type,
                                     int64_t sent_time);

  // Replaces a message's body. An `object_name` that is not empty replaces the kind as well and
  // clears the mention flag. True also when no such message exists.
  bool set_message_content(int64_t msg_id, const std::string& content,
                           const std::string& object_name);

  // The client uid of the conversation's newest message in the sent state, whoever wrote it.
  void get_client_uid(const std::string& session_id, SessionType session_type, int64_t& client_uid);

  // The client uid of a message.
  void get_client_uid(int64_t msg_id, int64_t& client_uid);

  // -- Building blocks --

  // The message's part of set_send_time(): 101, or the SQLite result code of the failure.
  int32_t set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                       int32_t fail_reason);

  // Runs `sql`, which takes a value and a message id as its only parameters, in this order. `sql`
  // is SQL text, the caller's duty: one statement. True also when no such message exists.
  bool common_message_int(int64_t msg_id, int32_t value, const std::string& sql);
  bool common_message_text(int64_t msg_id, const std::string& value, const std::string& sql);

  // ---- Deleting and clearing messages -----------------------------------------------------------

  // Deletes messages by id, lowers their conversations' counters by the unread among them and,
  // where any are, by the mentions among them, and points each conversation whose newest message
  // went at the newest that is left. Ids below 1 are skipped. One transaction. The answer is that
  // of the deletion: true also when no such message exists.
  bool delete_message(const std::vector<int64_t>& msg_id_v);

  // Deletes messages by server uid, in whatever conversation they lie, and points the named
  // conversation at its newest message. The counters stay. Pasted into literals unescaped, the uids
  // are SQL text, the caller's duty.
  void delete_message(const std::string& session_id, SessionType session_type,
                      const std::vector<std::string>& msg);

  // Deletes all messages of a conversation, which then has no newest message; its row, time and
  // counters stay. With `clean` the file is compacted and the answer is that of the compaction.
  bool clear_message(const std::string& session_id, SessionType session_type, bool clean);

  // Deletes every message sent before `sent_time`, in all conversations, whose rows stay as they
  // are. With `clean` the file is compacted. The answer is that of the deletion.
  bool clear_message_by_timestamp(int64_t sent_time, bool clean);

  // -- Building blocks --

  // Deletes all messages of a conversation and nothing else. True also when there is none.
  bool delete_message(const std::string& session_id, int32_t session_type);

  // ---- Message queries --------------------------------------------------------------------------

  // Fills `msg` from the row of its `msg_id_`. False, with `msg` untouched, when there is none.
  bool get_message_by_id(MessageResponse& msg);

  // Fills `msg` from the row of its `server_uid_` (32-bit id). False, with `msg` untouched, when
  // there is none.
  bool get_message_by_uid(MessageResponse& msg);

  // One page of history: up to `count` messages strictly before (`desc`, newest first) or strictly
  // after (else, oldest first) the time of message `messageId`. 0 starts behind the newest message;
  // an id that is not stored stands for time 0. Messages of the anchor's own time are in neither
  // page. `object_name` restricts the kinds; empty names in it do not count, and none restricts
  // nothing. Its names are SQL text, the caller's duty: pasted into literals unescaped. Returns
  // non-empty (32-bit ids).
  bool get_history_message_by_object_name(const std::string& session_id, SessionType session_type,
                                          const std::vector<std::string>& object_name,
                                          int64_t messageId, int32_t count,
                                          std::vector<MessageResponse>& msg, bool desc);

  // The same for one kind, or for all when `object_name` is empty. This name, too,
  // is SQL text, the caller's duty. In spite of its name, `search_time` is a message id, or 0.
  bool get_history_message_by_time(const std::string& session_id, SessionType session_type,
                                   const std::string& object_name, int64_t search_time,
                                   int32_t count, std::vector<MessageResponse>& msg, bool desc);

  // Inserts the ten newest mentions that carry direction 2, oldest first, at the front of `msg`.
  // The store itself never writes that direction: such rows come from a copied older store. Returns
  // non-empty (32-bit ids).
  bool get_mention_message(const std::string& session_id, SessionType session_type,
                           std::vector<MessageResponse>& msg);

  // A span read as two pages in one transaction: up to `left_count` messages before the message of
  // id `sent_time`, appended to `msg`, and up to `right_count` + 1 after the message whose id
  // equals the newest time of the first page (or `sent_time` - 1 when that page is empty), inserted
  // at the front newest first. Both numbers are resolved as message ids, as in
  // get_history_message_by_time(). Returns non-empty (32-bit ids).
  bool get_matched_message(const std::string& session_id, SessionType session_type,
                           int64_t sent_time, int32_t left_count, int32_t right_count,
                           std::vector<MessageResponse>& msg);

  // The time of the conversation's newest message: of all (`type` 2), of those received (1), of
  // those in the sent state (0).
  void get_max_time(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                    int32_t type);

  // The largest message id of the conversation, chosen by `type` as in get_max_time(); -1 for none.
  int64_t get_max_message_id(SessionType session_type, const std::string& session_id, int32_t type);

  // -- Building blocks --

  // get_message_by_uid() or get_message_by_id().
  bool query_message(MessageResponse& msg, bool by_uid);

  // A message's conversation and state. False when no such message exists.
  bool get_message_by_id(int64_t msg_id, std::string& session_id, int32_t& session_type,
                         bool& is_unread, bool& is_mention, int64_t& sent_time);

  // What get_max_time() does.
  void get_maxtime(int64_t& sent_time, SessionType session_type, const std::string& session_id,
                   int32_t type);

  // ---- Read state and send time -----------------------------------------------------------------

  // A message's time; 0 when no such message exists.
  int64_t get_send_time(int64_t msg_id);

  // Marks the received messages sent after the conversation's read time as read, and no longer as
  // mentions; read states other than 0 stay. Counters and read time stay too. True also when there
  // is no such message.
  bool update_message_status(const std::string& session_id, int32_t session_type);

  // -- Building blocks --

  // The time up to which the user has read the conversation.
  void get_readtime(const std::string& session_id, int32_t session_type, int64_t& read_time);

  // ---- Conversation rows and settings -----------------------------------------------------------

  // Pins or unpins. A missing conversation is created only when both flags are set; otherwise
  // nothing is written and the answer is true.
  bool set_is_top(const std::string& session_id, SessionType session_type, bool is_top,
                  bool create);

  // Stores a draft and moves the conversation to now; an empty draft clears it and leaves the time.
  // For a missing conversation an empty draft succeeds without a write and any other fails.
  bool set_message_draft(const std::string& session_id, SessionType session_type,
                         const std::string& draft);

  // Always false, with `draft` untouched: it reads a column that the schema does not have. The
  // draft is read by get_session() and get_session_list_by_page().
  bool get_message_draft(const std::string& session_id, SessionType session_type,
                         std::string& draft);

  // Writes the do-not-disturb setting; 0 is off. True also when no such conversation exists.
  bool set_silence(const std::string& session_id, SessionType session_type, int32_t status);

  // The do-not-disturb setting; a stored 1 is reported as 0. False when no such conversation
  // exists.
  bool get_silence(const std::string& session_id, SessionType session_type, int32_t& status);

  // Deletes the conversation's row and marks its received messages read, which stay. The answer is
  // that of the deletion: true also when there is no row.
  bool remove_session(const std::string& session_id, SessionType session_type);

  // Deletes every conversation of these kinds, then their messages. One transaction, committed with
  // what succeeded. False when either failed.
  bool clear_session(const std::vector<SessionType>& entry);

  // Runs `sql`, which takes a conversation's id and kind as its only parameters, in this order.
  // `sql` is SQL text, the caller's duty: one statement.
  bool common_session_operation(const std::string& session_id, int32_t session_type,
                                const std::string& sql);

  // -- Building blocks --

  // Whether the conversation has a row. False, too, when that cannot be looked up.
  bool is_session_exist(const std::string& session_id, int32_t session_type);

  // Creates a conversation's row with `name` as its title and these counters; a `create_time` of 0
  // becomes the clock's time. False when there is one already.
  bool add_session(const std::string& session_id, SessionType session_type, int64_t create_time,
                   int64_t msg_id, const std::string& name, int32_t count, int32_t mention);

  // Moves a conversation to a message just saved and adds to its counters. `profile` has bit 1 for
  // history, 2 for insert only, 4 for insert only with a time of its own. They govern a message not
  // newer than the conversation: history changes nothing when there is a newest message; insert
  // only leaves the time, and with a time of its own the newest message as well. A late "CV:QbNtf"
  // leaves the newest message, too. Failures are logged only.
  void set_session_time(const std::string& session_id, SessionType session_type, int64_t sent_time,
                        const std::string& object_name, int64_t msg_id, int32_t unread,
                        int32_t mention, uint32_t profile);

  // Moves a conversation to a message whose time was corrected, unless the conversation is at that
  // time or later and its newest message's id is 0 or more. Failures are logged only.
  void set_sessiontime(int64_t sent_time, int64_t msg_id, const std::string& session_id,
                       SessionType session_type);

  // A conversation's time, newest message (32-bit id) and counters.
  void get_sessiontime(const std::string& session_id, int32_t session_type, int64_t& time,
                       int64_t& msg_id, int32_t& unread, int32_t& mention);

  // Deletes the conversation's row; its messages stay. True also when there is none.
  bool delete_session(const std::string& session_id, int32_t session_type);

  // ---- Conversation list ------------------------------------------------------------------------

  // Appends one page of the conversations of these kinds, pinned first, then newest first, each
  // with its latest message. `sent_time` 0 starts the list. Ask for the next page with the smallest
  // get_sessiontime() time among the entries whose `is_top_` equals the last one's, which is
  // remembered between calls, once for the process: one reader pages at a time. False when nothing
  // was appended.
  //
  // An entry's `session_time` is its latest message's time, or, with a draft or without that
  // message, the conversation's own. Pages that are asked for with it repeat without end where it
  // is later than the own one, and leave conversations out where it is earlier.
  // `message_.sent_time_` is not set. 32-bit ids.
  bool get_session_list_by_page(const std::vector<SessionType>& entry, int64_t sent_time,
                                int32_t limit, std::vector<SessionInfo>& session);

  // Fills `session` from the row of its `session_id_` and `session_type_`, with its latest message,
  // whose time it takes. False, with `session` untouched, when there is none. 32-bit id.
  bool get_session(SessionInfo& session);

  // -- Building blocks --

  // A `session_type` or `msg_id` that is a text is SQL text, the caller's duty: numbers with commas
  // between.

  // Appends one page of rows without their messages; `is_top` tells that the page before ended
  // among the pinned. Returns non-empty (32-bit ids).
  bool load_session(std::vector<Session>& session, std::string& session_type, int64_t timestamp,
                    int32_t limit, bool is_top);

  // Fills all of `conv` that the conversation's row holds, but its id and kind. False when there is
  // no row. 32-bit id.
  bool load_session(Session& conv, const std::string& session_id, int32_t session_type);

  // Appends the messages of these ids, each under its conversation. True when the query ran.
  bool load_message(std::vector<Session>& session, const std::string& msg_id);

  // Fills what `conv` holds of its latest message, and its time with that message's, from the row
  // of `latest_id_`. False when there is no row.
  bool load_message(Session& conv);

  // Counts, by conversation, the unread and the mentions among the messages of these ids. A message
  // is added to every element of its conversation; one that is unread or a mention is appended as
  // an element of its own unless the last one took it, so a conversation can come up again. Returns
  // non-empty.
  bool load_distinct_session_with_unread(std::vector<Session>& session, const std::string& msg_id);

  // Appends id and kind of the conversations whose newest message is one of these. Returns
  // non-empty.
  bool load_session_with_latestid(std::vector<Session>& session, const std::string& msg_id);

  // The conversation's newest message (32-bit id) and its time. True also when it has none.
  bool get_message_latestid(const std::string& session_id, int32_t session_type, int64_t& msg_id,
                            int64_t& sent_time);

  // Points a conversation at a message; the conversation's time is set too when `msg_id` is above
  // 0. True also when no such conversation exists.
  bool set_message_latestid(const std::string& session_id, int32_t session_type, int64_t msg_id,
                            int64_t sent_time);

  // ---- Counters, read and receipt times ---------------------------------------------------------

  // Replaces both counters by a recount over the unread messages of direction 2 sent after
  // `sendTime`, which becomes the read time. The store itself never writes that direction. True
  // also when no such conversation exists.
  bool sync_unread(const std::string& session_id, int32_t session_type, int64_t sendTime);

  // The user has read the conversation: received messages after the read time are marked read, the
  // counters become 0, the read time that of the newest received message. One transaction. The
  // answer is that of the marking; when it failed the counters stay.
  bool clear_unread(const std::string& session_id, SessionType session_type);

  // The time up to which the peer has read.
  void get_receipt_time(const std::string& session_id, int32_t session_type, int64_t& receipt_time);

  // Unread messages of all conversations. This and the next four return false only when their
  // statement cannot be prepared. The sums and the number of messages are 0 where there is nothing
  // to count; get_unread_count() keeps `unread` when no such conversation exists.
  bool get_total_unread_count(int32_t& unread);

  // Unread messages of one conversation.
  bool get_unread_count(const std::string& session_id, SessionType session_type, int32_t& unread);

  // `unread` receives the number of all messages of the conversation, read or not.
  bool get_message_count(const std::string& session_id, SessionType session_type, int32_t& unread);

  // Unread messages of the conversations of these kinds, or of every kind when none is named;
  // muted ones count only `with_dnd`.
  bool get_cate_unread_count(const std::vector<SessionType>& entry, int32_t& unread, bool with_dnd);

  // Unread messages and mentions of the conversations of these kinds, muted ones too, or of every
  // kind when none is named.
  bool get_unread_mention_count(const std::vector<SessionType>& entry, int32_t& unread,
                                int32_t& mention);

  // -- Building blocks --

  // Lowers the counters. An `unread` of 0 changes nothing, a negative one of any size raises the
  // unread count by one; a `mention` below 1 leaves the mentions. Nothing stops at 0. True also
  // when no such conversation exists.
  bool set_unread_by_value(const std::string& session_id, int32_t session_type, int32_t unread,
                           int32_t mention);

  // The recount of sync_unread(); both 0 when there is no such message.
  bool get_unred_mention(const std::string& session_id, int32_t session_type, int64_t sendTime,
                         int32_t& unread, int32_t& mention);

  // Sets both counters to 0 and the read time.
  void set_unread_readtime(const std::string& session_id, int32_t session_type, int64_t read_time);

  // Writes the time up to which the peer has read, also an earlier one. Failures are logged only.
  void set_receipttime(const std::string& session_id, int32_t session_type, int64_t receipt_time);

  // What get_receipt_time() does.
  void get_receipttime(const std::string& session_id, int32_t session_type, int64_t& receipt_time);

  // ---- Statement layer --------------------------------------------------------------------------

  // -- Building blocks --

  // Parameters count from 1, columns from 0. Results are SQLite result codes; -1
  // stands for no open connection. A null `stmt` aborts the process wherever one is required.

  // Prepares one statement: the handle, which the caller passes to finalize(), or null after a
  // failure or for a text without a statement. `success` receives 0 or the code of the failure.
  // `query` is SQL text, the caller's duty; what follows its first statement is dropped.
  sqlite3_stmt* prepare_sql(const std::string& query, int32_t& success);

  // Binds a value. A text is not copied: it must live, unchanged, until the statement is finalised
  // or the parameter bound again. It ends at its first zero byte.
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, int32_t value);
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, int64_t value);
  static int32_t bind(sqlite3_stmt* stmt, int32_t icol, const std::string& value);

  // Steps once, without a retry: 100 for a row, 101 for done, less for a failure. With `finaled`
  // the statement is finalised too, whatever the result.
  int32_t step(sqlite3_stmt* stmt, bool finaled);

  // Makes the statement ready to run again; its bindings stay.
  void reset(sqlite3_stmt* stmt);

  // Ends the statement; null is allowed.
  void finalize(sqlite3_stmt* stmt);

  // A column of the current row; NULL reads as 0 or empty.
  static int32_t get_int(sqlite3_stmt* stmt, int32_t index);
  static int64_t get_int64(sqlite3_stmt* stmt, int32_t index);
  static const std::string get_text(sqlite3_stmt* stmt, int32_t index);

  // The connection's last error text. Aborts the process when there is no connection.
  const std::string get_error();

  // Runs one statement and drops its rows: 101 when it ended, 100 when it gave a row, else the code
  // of the failure. `sql` is SQL text, the caller's duty; without a statement it aborts.
  int32_t execute_none_query(const std::string& sql);

  // The first column of the first row as an integer; -1 for no row or a failure. `pragma` is
  // SQL text, the caller's duty; without a statement it aborts.
  int32_t get_pragma(const std::string& pragma);

  // Replaces `str` by the number in plain decimal, whatever the global locale is.
  static void number_to_string(std::string& str, int64_t number);
  template <typename Integer>
  static void number_to_string(std::string& str, Integer number) {
    static_assert(std::is_integral<Integer>::value, "only whole numbers are written");
    static_assert(std::is_signed<Integer>::value || sizeof(Integer) < sizeof(int64_t),
                  "the number must fit in 64 bits with a sign");
    number_to_string(str, static_cast<int64_t>(number));
  }

  // `keyword` made ready for a LIKE pattern inside an SQL literal: "_" and "%" with a backslash
  // before them, quotes doubled, a backslash as it is. `flag` is set when a backslash was added,
  // which the LIKE clause must then name as its escape character; it is never cleared.
  static std::string escape_char(const std::string& keyword, bool& flag);

  // Appends the kinds from 1 to 5 to `type`, in decimal with commas between; others are skipped.
  void join_type(const std::vector<SessionType>& entry, std::string& type);

 private:
  friend struct CvDbPreparing;  // lets the unit's own statements use prepare()

  CvDbSingleton() = default;
  ~CvDbSingleton();

  // What prepare_sql() does, without copying a literal for it.
  sqlite3_stmt* prepare(const char* query, int32_t& success);

  static CvDbSingleton* instance_;

  sqlite3* db_ = nullptr;        // the open connection; null when closed
  cvrtc::Pathname local_path_;   // the file of the last init_open_db()
  cvrtc::Pathname local_path8_;  // the file open_db() opened last: deleted when found damaged
  std::string user_id_;          // whose database is open
  [[maybe_unused]] bool corrupt_ = false;  // never set
};

}  // namespace Corvan

#endif  // DB_CV_DB_SINGLETON_H_
