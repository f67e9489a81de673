// The records that the store exchanges with its callers. Plain values: they own their strings and
// are copied whole.

#ifndef DB_CV_DB_RECORDS_H_
#define DB_CV_DB_RECORDS_H_

#include <cstdint>
#include <string>

namespace Corvan {

// The kinds of conversation, as the session_type columns hold them. 0 and values above 5 name no
// kind.
enum SessionType : int32_t {
  CV_PRIVATE = 1,
  CV_GROUP = 2,
  CV_CHATROOM = 3,
  CV_RECEPTION = 4,
  CV_SYSTEM = 5,
};

// One message.
struct MessageResponse {
  std::string session_id_;
  std::string sender_;
  std::string object_name_;  // the message's kind, such as "CV:TxtMsg"
  std::string content_;      // the body as stored
  std::string server_uid_;   // empty while the server has not named the message
  int64_t msg_id_ = 0;       // the row id; the batch save stores a record only when it is below 0
  SessionType session_type_ = SessionType(0);
  int32_t read_status_ = 0;    // 0 unread, 1 read; other values count as read
  int32_t sent_status_ = 0;    // 0 sent, 1 being sent, 2 failed, 3 covered by the peer's receipt
  int32_t unread_count_ = 0;   // of the conversation; for the message layer, the store leaves it
  int32_t mention_count_ = 0;  // likewise
  bool is_receive_ = false;    // received, not sent by the signed-in user
  bool is_store_ = false;      // of a stored kind; the batch save stores no other
  bool is_offline_ = false;    // delivered as an offline message; the message layer's
  bool is_command_ = false;    // a command message; the message layer's
  bool sync_time_ = false;     // concerns the sync times; the message layer's
  int64_t sent_time_ = 0;
  int64_t client_uid_ = 0;  // the sending client's own number of the message
};

// One conversation's row with its latest message folded in, as the session loaders fill it.
struct Session {
  std::string session_id_;
  std::string title_;
  std::string draft_;
  std::string content_;      // of the latest message
  std::string object_name_;  // of the latest message
  std::string sender_;       // of the latest message
  std::string server_uid_;   // of the latest message
  int32_t session_type_ = 0;
  int32_t is_top_ = 0;  // pinned: 1, else 0
  int32_t unread_count_ = 0;
  int32_t silence_ = 0;  // notifications muted: as set, 0 for not
  int32_t mention_count_ = 0;
  int32_t is_recieve_ = 0;   // direction of the latest message; spelled so, unlike is_receive_
  int32_t read_status_ = 0;  // of the latest message
  int32_t sent_status_ = 0;  // of the latest message
  int64_t session_time_ = 0;
  int64_t latest_id_ = 0;  // row id of the latest message; 0 or less for none

  // Orders the conversation list: more pinned first, then newer first. The first test is one-sided
  // on purpose: a row less pinned than `other` goes on to the times, so a pinned row and a newer
  // unpinned one are each less than the other. It orders strictly among rows of equal is_top_ only.
  bool operator<(const Session& other) const {
    if (is_top_ > other.is_top_) return true;
    return session_time_ > other.session_time_;
  }
};

// One entry of the conversation list.
struct SessionInfo {
  std::string session_id_;
  std::string title_;
  std::string draft_;
  int32_t session_type_ = 0;  // a SessionType
  int32_t is_top_ = 0;        // pinned: 1, else 0
  int32_t silence_ = 0;       // notifications muted: as set, 0 for not
  int32_t unread_count_ = 0;
  int32_t mention_count_ = 0;
  int64_t session_time = 0;  // named without the trailing underscore, unlike its neighbours
  MessageResponse message_;  // the latest message
};

// One server confirmation of an own message: the caller fills the key and the new values, the batch
// duplicate test fills msg_id_ and server_uid_old_.
struct UpdateValue {
  std::string session_id_;      // key
  std::string sender_;          // key
  std::string server_uid_old_;  // the stored server uid; empty while the server has not named it
  std::string server_uid_new_;
  int32_t session_type_ = 0;  // key, a SessionType
  int64_t msg_id_ = -1;       // the stored row's id; -1 while unknown
  int64_t sent_time_ = 0;     // the time to set
  int64_t client_uid_ = 0;    // key
};

}  // namespace Corvan

#endif  // DB_CV_DB_RECORDS_H_
