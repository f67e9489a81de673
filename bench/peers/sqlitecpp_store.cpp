// The draft on SQLiteCpp.

#include <SQLiteCpp/SQLiteCpp.h>
#include <SQLiteCpp/VariadicBind.h>

#include <algorithm>

#include "bench/peers/sqlite_draft.h"

namespace corvan_bench {

namespace {

// The kept statements.
struct Statements {
  Statements(SQLite::Database& db, const std::string& find_server_uid_sql)
      : find_server_uid(db, find_server_uid_sql),
        find_client_uid(db, draft_sql::kFindClientUid),
        insert_message(db, draft_sql::kInsertMessage),
        move_conversation(db, draft_sql::kMoveConversation),
        first_page(db, draft_sql::kFirstPage),
        history(db, draft_sql::kHistory),
        mentions(db, draft_sql::kMentions),
        total_unread(db, draft_sql::kTotalUnread),
        mark_messages_read(db, draft_sql::kMarkMessagesRead),
        mark_conversation_read(db, draft_sql::kMarkConversationRead),
        find_message(db, draft_sql::kFindMessage),
        delete_message(db, draft_sql::kDeleteMessage),
        lower_counters(db, draft_sql::kLowerCounters),
        correct_latest(db, draft_sql::kCorrectLatest) {}

  SQLite::Statement find_server_uid;
  SQLite::Statement find_client_uid;
  SQLite::Statement insert_message;
  SQLite::Statement move_conversation;
  SQLite::Statement first_page;
  SQLite::Statement history;
  SQLite::Statement mentions;
  SQLite::Statement total_unread;
  SQLite::Statement mark_messages_read;
  SQLite::Statement mark_conversation_read;
  SQLite::Statement find_message;
  SQLite::Statement delete_message;
  SQLite::Statement lower_counters;
  SQLite::Statement correct_latest;
};

// One use of a kept statement: binds it at the start, resets it at the end.
class Query {
 public:
  template <typename... Values>
  explicit Query(SQLite::Statement& statement, const Values&... values) : statement_(statement) {
    SQLite::bind(statement_, values...);
  }
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { statement_.tryReset(); }

  bool row() { return statement_.executeStep(); }
  void run() { statement_.exec(); }

  std::string text(int column) { return statement_.getColumn(column).getString(); }
  int32_t get_int(int column) { return statement_.getColumn(column).getInt(); }
  int64_t get_int64(int column) { return statement_.getColumn(column).getInt64(); }

 private:
  SQLite::Statement& statement_;
};

// Reads the columns from `first` on, in the order of the SQL texts: id to sent_status.
void read_message(Query& query, int first, const ConversationName& name, MessageResponse& message) {
  message.session_id_ = name.id;
  message.session_type_ = name.kind;
  message.msg_id_ = query.get_int64(first);
  message.object_name_ = query.text(first + 1);
  message.content_ = query.text(first + 2);
  message.sender_ = query.text(first + 3);
  message.server_uid_ = query.text(first + 4);
  message.is_receive_ = query.get_int(first + 5) != 0;
  message.read_status_ = query.get_int(first + 6);
  message.sent_status_ = query.get_int(first + 7);
}

std::vector<MessageResponse> read_messages(Query& query, const ConversationName& name) {
  std::vector<MessageResponse> messages;
  while (query.row()) {
    MessageResponse message;
    read_message(query, 0, name, message);
    message.sent_time_ = query.get_int64(8);
    messages.push_back(std::move(message));
  }
  return messages;
}

class SqliteCppStore final : public SqliteDraft {
 public:
  using SqliteDraft::SqliteDraft;

  void close() override {
    statements_.reset();
    db_.reset();
  }

  void pin(const ConversationName& name) override {
    SQLite::Statement statement(*db_, draft_sql::kPin);
    Query(statement, name.id, int32_t{name.kind}).run();
  }

  std::vector<SessionInfo> first_page(int32_t count) override {
    std::vector<SessionInfo> page;
    Query query(statements_->first_page, count);
    while (query.row()) {
      SessionInfo entry;
      entry.session_id_ = query.text(0);
      entry.session_type_ = query.get_int(1);
      entry.title_ = query.text(2);
      entry.draft_ = query.text(3);
      entry.is_top_ = query.get_int(4);
      entry.silence_ = query.get_int(5);
      entry.unread_count_ = query.get_int(6);
      entry.mention_count_ = query.get_int(7);
      entry.session_time = query.get_int64(8);
      read_message(query, 9,
                   {entry.session_id_, static_cast<Corvan::SessionType>(entry.session_type_)},
                   entry.message_);
      page.push_back(std::move(entry));
    }
    return page;
  }

  std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                       int32_t count) override {
    Query query(statements_->history, name.id, int32_t{name.kind}, before_id, count);
    return read_messages(query, name);
  }

  int64_t total_unread() override {
    Query query(statements_->total_unread);
    query.row();
    return query.get_int64(0);
  }

  std::vector<MessageResponse> mentions(const ConversationName& name) override {
    Query query(statements_->mentions, name.id, int32_t{name.kind});
    std::vector<MessageResponse> list = read_messages(query, name);
    std::reverse(list.begin(), list.end());
    return list;
  }

 private:
  void connect(const std::string& file) override {
    db_.emplace(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  }
  void prepare(const std::string& find_server_uid) override {
    statements_.emplace(*db_, find_server_uid);
  }
  void execute(const std::string& sql) override { db_->exec(sql); }
  int64_t number(const std::string& sql) override { return db_->execAndGet(sql).getInt64(); }

  bool find_server_uid(const MessageResponse& m) override {
    SQLite::Statement& statement = statements_->find_server_uid;
    if (!within_conversation()) return Query(statement, m.server_uid_).row();
    return Query(statement, m.server_uid_, m.session_id_, int32_t{m.session_type_}).row();
  }

  bool find_client_uid(const MessageResponse& m) override {
    return Query(statements_->find_client_uid, m.session_id_, int32_t{m.session_type_},
                 m.client_uid_, m.sender_)
        .row();
  }

  int64_t insert_message(const MessageResponse& m, bool mention) override {
    Query(statements_->insert_message, m.session_id_, int32_t{m.session_type_}, m.object_name_,
          m.content_, m.sender_, m.is_receive_ ? 1 : 0, m.sent_status_, m.read_status_,
          mention ? 1 : 0, m.sent_time_, m.client_uid_, m.server_uid_)
        .run();
    return db_->getLastInsertRowid();
  }

  void move_conversation(const MessageResponse& m, bool mention, int64_t latest_id) override {
    Query(statements_->move_conversation, m.session_id_, int32_t{m.session_type_}, m.sent_time_,
          is_unread(m) ? 1 : 0, mention ? 1 : 0, latest_id)
        .run();
  }

  void mark_messages_read(const ConversationName& name) override {
    Query(statements_->mark_messages_read, name.id, int32_t{name.kind}).run();
  }
  void mark_conversation_read(const ConversationName& name) override {
    Query(statements_->mark_conversation_read, name.id, int32_t{name.kind}).run();
  }

  std::optional<Removal> find_message(int64_t id) override {
    Query query(statements_->find_message, id);
    if (!query.row()) return std::nullopt;
    return Removal{{query.text(0), static_cast<Corvan::SessionType>(query.get_int(1))},
                   query.get_int(2),
                   query.get_int(3)};
  }
  void delete_message(int64_t id) override { Query(statements_->delete_message, id).run(); }
  void lower_counters(const Removal& removal) override {
    Query(statements_->lower_counters, removal.unread, removal.mentions, removal.conversation.id,
          int32_t{removal.conversation.kind})
        .run();
  }
  void correct_latest(const ConversationName& name, int64_t deleted_id) override {
    Query(statements_->correct_latest, name.id, int32_t{name.kind}, deleted_id).run();
  }

  std::optional<SQLite::Database> db_;
  std::optional<Statements> statements_;
};

}  // namespace

std::unique_ptr<Store> make_sqlitecpp_store(DraftIndexes indexes) {
  return std::make_unique<SqliteCppStore>(indexes);
}

std::string sqlitecpp_version() {
  return SQLITECPP_VERSION;
}

}  // namespace corvan_bench
