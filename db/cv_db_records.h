/// @file
/// The records that the store exchanges with its callers. They are plain values that own their
/// strings.

#ifndef DB_CV_DB_RECORDS_H_
#define DB_CV_DB_RECORDS_H_

#include <cstdint>
#include <string>

namespace Corvan {

/// The kinds of conversation, as stored in the session_type columns. 0 and values above 5 are not
/// kinds.
enum SessionType : int32_t {
  CV_PRIVATE = 1,
  CV_GROUP = 2,
  CV_CHATROOM = 3,
  CV_RECEPTION = 4,
  CV_SYSTEM = 5,
};

/// One message.
struct MessageResponse {
  std::string session_id_;   ///< the conversation's id
  std::string sender_;       ///< the sending user's id
  std::string object_name_;  ///< the message's kind, such as "CV:TxtMsg"
  std::string content_;      ///< the body as stored
  std::string server_uid_;   ///< the server's id of the message; empty until the server sends it
  int64_t msg_id_ = 0;       ///< the row id; the batch save stores a record only if it is below 0
  SessionType session_type_ = SessionType(0);  ///< the conversation's kind
  int32_t read_status_ = 0;                    ///< 0 unread, 1 read; other values count as read
  int32_t sent_status_ = 0;    ///< 0 sent, 1 being sent, 2 failed, 3 covered by the peer's receipt
  int32_t unread_count_ = 0;   ///< the conversation's; for the message layer, not set by the store
  int32_t mention_count_ = 0;  ///< the conversation's; for the message layer, not set by the store
  bool is_receive_ = false;    ///< received, not sent by the signed-in user
  bool is_store_ = false;      ///< of a stored kind; the batch save skips all others
  bool is_offline_ = false;    ///< delivered as an offline message; for the message layer
  bool is_command_ = false;    ///< a command message; for the message layer
  bool sync_time_ = false;     ///< concerns the sync times; for the message layer
  int64_t sent_time_ = 0;      ///< milliseconds since the Unix epoch; history is ordered by it
  int64_t client_uid_ = 0;     ///< the sending client's own number of the message
};

/// One conversation's row together with its latest message, as the session loaders fill it.
struct Session {
  std::string session_id_;     ///< the conversation's id
  std::string title_;          ///< the title; empty if a save created the conversation
  std::string draft_;          ///< the unsent text; empty if there is none
  std::string content_;        ///< of the latest message
  std::string object_name_;    ///< of the latest message
  std::string sender_;         ///< of the latest message
  std::string server_uid_;     ///< of the latest message
  int32_t session_type_ = 0;   ///< the conversation's kind, a SessionType
  int32_t is_top_ = 0;         ///< 1 if pinned, otherwise 0
  int32_t unread_count_ = 0;   ///< unread messages of the conversation
  int32_t silence_ = 0;        ///< do-not-disturb as set by the caller; 0 is off
  int32_t mention_count_ = 0;  ///< unread mentions of the conversation
  int32_t is_recieve_ = 0;     ///< direction of the latest message; spelled unlike is_receive_
  int32_t read_status_ = 0;    ///< of the latest message
  int32_t sent_status_ = 0;    ///< of the latest message
  int64_t session_time_ = 0;   ///< the place in the list, in milliseconds since the Unix epoch
  int64_t latest_id_ = 0;      ///< row id of the latest message; 0 or less if there is none

  /// Orders the conversation list: pinned first, then newer first. This is a strict order only
  /// among rows with equal is_top_: the first test has no counterpart for a row that is less pinned
  /// than `other`, so a pinned row and a newer unpinned one are each less than the other.
  bool operator<(const Session& other) const {
    if (is_top_ > other.is_top_) return true;
    return session_time_ > other.session_time_;
  }
};

/// One entry of the conversation list.
struct SessionInfo {
  std::string session_id_;     ///< the conversation's id
  std::string title_;          ///< the title; empty if a save created the conversation
  std::string draft_;          ///< the unsent text; empty if there is none
  int32_t session_type_ = 0;   ///< the conversation's kind, a SessionType
  int32_t is_top_ = 0;         ///< 1 if pinned, otherwise 0
  int32_t silence_ = 0;        ///< do-not-disturb as set by the caller; 0 is off
  int32_t unread_count_ = 0;   ///< unread messages of the conversation
  int32_t mention_count_ = 0;  ///< unread mentions of the conversation
  int64_t session_time = 0;    ///< shown time; named without the trailing underscore
  MessageResponse message_;    ///< the latest message
};

/// The server's confirmation of one own message. The caller fills the key and the new values; the
/// batch duplicate test fills msg_id_ and server_uid_old_.
struct UpdateValue {
  std::string session_id_;      ///< key
  std::string sender_;          ///< key
  std::string server_uid_old_;  ///< the stored server uid; empty if the server has not sent one
  std::string server_uid_new_;  ///< the server uid to store
  int32_t session_type_ = 0;    ///< key, a SessionType
  int64_t msg_id_ = -1;         ///< the stored message's row id; -1 while unknown
  int64_t sent_time_ = 0;       ///< the time to store
  int64_t client_uid_ = 0;      ///< key
};

}  // namespace Corvan

#endif  // DB_CV_DB_RECORDS_H_
