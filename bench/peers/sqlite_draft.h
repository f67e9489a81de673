// A plausible first draft of a store on SQLite: schema, SQL texts and the order of the steps. A
// derived class runs the statements through a wrapper library.

#ifndef BENCH_PEERS_SQLITE_DRAFT_H_
#define BENCH_PEERS_SQLITE_DRAFT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/peers/contenders.h"
#include "bench/peers/peer.h"

namespace corvan_bench {

// Parameters are bound in the order of the text.
namespace draft_sql {

// Without an index on the server uid, the best search is within the conversation: it walks the
// index on conversation and time instead of the whole table.
inline constexpr const char* kFindServerUidInConversation =
    "select id from message where server_uid=:server_uid and conversation_id=:conversation_id "
    "and kind=:kind limit 1";
inline constexpr const char* kFindServerUid =
    "select id from message where server_uid=:server_uid limit 1";

inline constexpr const char* kFindClientUid =
    "select id from message where conversation_id=:conversation_id and kind=:kind "
    "and client_uid=:client_uid and sender=:sender limit 1";

inline constexpr const char* kInsertMessage =
    "insert into message(conversation_id,kind,object_name,content,sender,received,sent_status,"
    "read_status,mention,sent_time,client_uid,server_uid) "
    "values(:conversation_id,:kind,:object_name,:content,:sender,:received,:sent_status,"
    ":read_status,:mention,:sent_time,:client_uid,:server_uid)";

inline constexpr const char* kMoveConversation =
    "insert into conversation(id,kind,time,unread,mentions,latest_id) "
    "values(:id,:kind,:time,:unread,:mentions,:latest_id) "
    "on conflict(id,kind) do update set time=excluded.time,unread=unread+excluded.unread,"
    "mentions=mentions+excluded.mentions,latest_id=excluded.latest_id";

inline constexpr const char* kPin = "update conversation set pinned=1 where id=:id and kind=:kind";

inline constexpr const char* kFirstPage =
    "select c.id,c.kind,c.title,c.draft,c.pinned,c.silence,c.unread,c.mentions,c.time,"
    "m.id,m.object_name,m.content,m.sender,m.server_uid,m.received,m.read_status,m.sent_status "
    "from conversation c left join message m on m.id=c.latest_id "
    "order by c.pinned desc,c.time desc limit :count";

inline constexpr const char* kHistory =
    "select id,object_name,content,sender,server_uid,received,read_status,sent_status,sent_time "
    "from message where conversation_id=:conversation_id and kind=:kind "
    "and sent_time<(select sent_time from message where id=:before_id) "
    "order by sent_time desc limit :count";

inline constexpr const char* kMentions =
    "select id,object_name,content,sender,server_uid,received,read_status,sent_status,sent_time "
    "from message where conversation_id=:conversation_id and kind=:kind and mention=1 "
    "order by sent_time desc limit 10";

inline constexpr const char* kTotalUnread = "select coalesce(sum(unread),0) from conversation";

inline constexpr const char* kMarkMessagesRead =
    "update message set read_status=1,mention=0 where conversation_id=:conversation_id "
    "and kind=:kind and received=1 and read_status=0";
inline constexpr const char* kMarkConversationRead =
    "update conversation set unread=0,mentions=0,read_time=time where id=:id and kind=:kind";

inline constexpr const char* kFindMessage =
    "select conversation_id,kind,received and read_status=0,mention from message where id=:id";
inline constexpr const char* kDeleteMessage = "delete from message where id=:id";
inline constexpr const char* kLowerCounters =
    "update conversation set unread=unread-:unread,mentions=mentions-:mentions "
    "where id=:id and kind=:kind";
inline constexpr const char* kCorrectLatest =
    "update conversation set (latest_id,time)="
    "(select m.id,m.sent_time from message m where m.conversation_id=conversation.id "
    "and m.kind=conversation.kind order by m.sent_time desc limit 1) "
    "where id=:id and kind=:kind and latest_id=:latest_id";

}  // namespace draft_sql

class SqliteDraft : public Store {
 public:
  explicit SqliteDraft(DraftIndexes indexes) : indexes_(indexes) {}

  void open(const std::string& folder) final;
  void begin() final { execute("begin"); }
  void commit() final { execute("commit"); }
  int64_t save(const MessageResponse& message, bool mention) final;
  int64_t add(const MessageResponse& message, bool mention) final;
  void mark_read(const ConversationName& name) final;
  void remove(const std::vector<int64_t>& ids) final;

 protected:
  // The fields of a message that are needed to update its conversation when it is deleted.
  struct Removal {
    ConversationName conversation;
    int32_t unread = 0;
    int32_t mentions = 0;
  };

  virtual void connect(const std::string& file) = 0;
  // Prepares the statements; they are kept until close().
  virtual void prepare(const std::string& find_server_uid) = 0;
  // Runs a statement once and ignores its rows.
  virtual void execute(const std::string& sql) = 0;
  // The first column of the first row.
  virtual int64_t number(const std::string& sql) = 0;

  // Each runs the statement with its name.
  virtual bool find_server_uid(const MessageResponse& message) = 0;
  virtual bool find_client_uid(const MessageResponse& message) = 0;
  virtual int64_t insert_message(const MessageResponse& message, bool mention) = 0;
  virtual void move_conversation(const MessageResponse& message, bool mention,
                                 int64_t latest_id) = 0;
  virtual void mark_messages_read(const ConversationName& name) = 0;
  virtual void mark_conversation_read(const ConversationName& name) = 0;
  virtual std::optional<Removal> find_message(int64_t id) = 0;
  virtual void delete_message(int64_t id) = 0;
  virtual void lower_counters(const Removal& removal) = 0;
  virtual void correct_latest(const ConversationName& name, int64_t deleted_id) = 0;

  // Whether find_server_uid() also binds the conversation.
  bool within_conversation() const { return indexes_ == DraftIndexes::kFirstDraft; }

 private:
  DraftIndexes indexes_;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_SQLITE_DRAFT_H_
