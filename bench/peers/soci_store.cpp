// The draft on SOCI. Its statements are bound to variables once, when they are prepared.

#include <soci/soci-config.h>
// The packages are built with Boost, but Boost's headers are needed only to bind Boost's own types.
#undef SOCI_HAVE_BOOST

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <soci/version.h>

#include <algorithm>

#include "bench/peers/sqlite_draft.h"

namespace corvan_bench {

namespace {

using soci::into;
using soci::use;

// The variables that the kept statements read their parameters from.
struct Parameters {
  std::string conversation_id;
  std::string object_name;
  std::string content;
  std::string sender;
  std::string server_uid;
  int kind = 0;
  int received = 0;
  int sent_status = 0;
  int read_status = 0;
  int unread = 0;
  int mention = 0;
  int count = 0;
  long long id = 0;
  long long sent_time = 0;
  long long client_uid = 0;

  void set(const ConversationName& name) {
    conversation_id = name.id;
    kind = name.kind;
  }
  void set(const MessageResponse& m, bool is_mention) {
    set(conversation_of(m));
    object_name = m.object_name_;
    content = m.content_;
    sender = m.sender_;
    server_uid = m.server_uid_;
    received = m.is_receive_ ? 1 : 0;
    sent_status = m.sent_status_;
    read_status = m.read_status_;
    mention = is_mention ? 1 : 0;
    sent_time = m.sent_time_;
    client_uid = m.client_uid_;
  }
};

// The variables that they write columns to. The indicator is needed for the NULLs of a conversation
// without a newest message.
struct Columns {
  soci::indicator null = soci::i_ok;
  std::string conversation_id;
  std::string title;
  std::string draft;
  std::string object_name;
  std::string content;
  std::string sender;
  std::string server_uid;
  int kind = 0;
  int pinned = 0;
  int silence = 0;
  int unread = 0;
  int mentions = 0;
  int received = 0;
  int read_status = 0;
  int sent_status = 0;
  long long id = 0;
  long long sent_time = 0;
  long long number = 0;
};

// The kept statements.
struct Statements {
  Statements(soci::session& db, const std::string& find_server_uid_sql, bool within_conversation,
             Parameters& in, Columns& out)
      : find_server_uid(
            within_conversation
                ? (db.prepare << find_server_uid_sql, use(in.server_uid), use(in.conversation_id),
                   use(in.kind), into(out.id))
                : (db.prepare << find_server_uid_sql, use(in.server_uid), into(out.id))),
        find_client_uid((db.prepare << draft_sql::kFindClientUid, use(in.conversation_id),
                         use(in.kind), use(in.client_uid), use(in.sender), into(out.id))),
        insert_message((db.prepare << draft_sql::kInsertMessage, use(in.conversation_id),
                        use(in.kind), use(in.object_name), use(in.content), use(in.sender),
                        use(in.received), use(in.sent_status), use(in.read_status), use(in.mention),
                        use(in.sent_time), use(in.client_uid), use(in.server_uid))),
        move_conversation((db.prepare << draft_sql::kMoveConversation, use(in.conversation_id),
                           use(in.kind), use(in.sent_time), use(in.unread), use(in.mention),
                           use(in.id))),
        first_page((db.prepare << draft_sql::kFirstPage, use(in.count), into(out.conversation_id),
                    into(out.kind), into(out.title), into(out.draft), into(out.pinned),
                    into(out.silence), into(out.unread), into(out.mentions),
                    into(out.sent_time, out.null), into(out.id, out.null),
                    into(out.object_name, out.null), into(out.content, out.null),
                    into(out.sender, out.null), into(out.server_uid, out.null),
                    into(out.received, out.null), into(out.read_status, out.null),
                    into(out.sent_status, out.null))),
        history((db.prepare << draft_sql::kHistory, use(in.conversation_id), use(in.kind),
                 use(in.id), use(in.count), into(out.id), into(out.object_name), into(out.content),
                 into(out.sender), into(out.server_uid), into(out.received), into(out.read_status),
                 into(out.sent_status), into(out.sent_time))),
        mentions((db.prepare << draft_sql::kMentions, use(in.conversation_id), use(in.kind),
                  into(out.id), into(out.object_name), into(out.content), into(out.sender),
                  into(out.server_uid), into(out.received), into(out.read_status),
                  into(out.sent_status), into(out.sent_time))),
        total_unread((db.prepare << draft_sql::kTotalUnread, into(out.number))),
        mark_messages_read(
            (db.prepare << draft_sql::kMarkMessagesRead, use(in.conversation_id), use(in.kind))),
        mark_conversation_read((db.prepare << draft_sql::kMarkConversationRead,
                                use(in.conversation_id), use(in.kind))),
        find_message((db.prepare << draft_sql::kFindMessage, use(in.id), into(out.conversation_id),
                      into(out.kind), into(out.unread), into(out.mentions))),
        delete_message((db.prepare << draft_sql::kDeleteMessage, use(in.id))),
        lower_counters((db.prepare << draft_sql::kLowerCounters, use(in.unread), use(in.mention),
                        use(in.conversation_id), use(in.kind))),
        correct_latest((db.prepare << draft_sql::kCorrectLatest, use(in.conversation_id),
                        use(in.kind), use(in.id))) {}

  soci::statement find_server_uid;
  soci::statement find_client_uid;
  soci::statement insert_message;
  soci::statement move_conversation;
  soci::statement first_page;
  soci::statement history;
  soci::statement mentions;
  soci::statement total_unread;
  soci::statement mark_messages_read;
  soci::statement mark_conversation_read;
  soci::statement find_message;
  soci::statement delete_message;
  soci::statement lower_counters;
  soci::statement correct_latest;
};

// Runs a query to its end, so that it releases its snapshot. Calls `take_row` for each row and
// returns true if there was one.
template <typename TakeRow>
bool read_all(soci::statement& statement, TakeRow&& take_row) {
  bool any = false;
  statement.execute();
  while (statement.fetch()) {
    take_row();
    any = true;
  }
  return any;
}
bool has_row(soci::statement& statement) {
  return read_all(statement, [] {});
}

class SociStore final : public SqliteDraft {
 public:
  using SqliteDraft::SqliteDraft;

  void close() override {
    statements_.reset();
    db_.reset();
  }

  void pin(const ConversationName& name) override {
    int kind = name.kind;
    *db_ << draft_sql::kPin, use(name.id), use(kind);
  }

  std::vector<SessionInfo> first_page(int32_t count) override {
    std::vector<SessionInfo> page;
    in_.count = count;
    read_all(statements_->first_page, [&] {
      SessionInfo entry;
      entry.session_id_ = out_.conversation_id;
      entry.session_type_ = out_.kind;
      entry.title_ = out_.title;
      entry.draft_ = out_.draft;
      entry.is_top_ = out_.pinned;
      entry.silence_ = out_.silence;
      entry.unread_count_ = out_.unread;
      entry.mention_count_ = out_.mentions;
      entry.session_time = out_.sent_time;
      entry.message_ = message({out_.conversation_id, static_cast<Corvan::SessionType>(out_.kind)});
      page.push_back(std::move(entry));
    });
    return page;
  }

  std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                       int32_t count) override {
    in_.set(name);
    in_.id = before_id;
    in_.count = count;
    return messages(statements_->history, name);
  }

  int64_t total_unread() override {
    has_row(statements_->total_unread);
    return out_.number;
  }

  std::vector<MessageResponse> mentions(const ConversationName& name) override {
    in_.set(name);
    std::vector<MessageResponse> list = messages(statements_->mentions, name);
    std::reverse(list.begin(), list.end());
    return list;
  }

 private:
  void connect(const std::string& file) override { db_.emplace(soci::sqlite3, "db=" + file); }
  void prepare(const std::string& find_server_uid) override {
    statements_.emplace(*db_, find_server_uid, within_conversation(), in_, out_);
  }
  void execute(const std::string& sql) override { *db_ << sql; }
  int64_t number(const std::string& sql) override {
    long long value = 0;
    *db_ << sql, into(value);
    return value;
  }

  bool find_server_uid(const MessageResponse& m) override {
    in_.set(conversation_of(m));
    in_.server_uid = m.server_uid_;
    return has_row(statements_->find_server_uid);
  }

  bool find_client_uid(const MessageResponse& m) override {
    in_.set(conversation_of(m));
    in_.client_uid = m.client_uid_;
    in_.sender = m.sender_;
    return has_row(statements_->find_client_uid);
  }

  int64_t insert_message(const MessageResponse& m, bool mention) override {
    in_.set(m, mention);
    statements_->insert_message.execute(true);
    long long id = 0;
    db_->get_last_insert_id("message", id);
    return id;
  }

  void move_conversation(const MessageResponse& m, bool mention, int64_t latest_id) override {
    in_.set(conversation_of(m));
    in_.sent_time = m.sent_time_;
    in_.unread = is_unread(m) ? 1 : 0;
    in_.mention = mention ? 1 : 0;
    in_.id = latest_id;
    statements_->move_conversation.execute(true);
  }

  void mark_messages_read(const ConversationName& name) override {
    in_.set(name);
    statements_->mark_messages_read.execute(true);
  }
  void mark_conversation_read(const ConversationName& name) override {
    in_.set(name);
    statements_->mark_conversation_read.execute(true);
  }

  std::optional<Removal> find_message(int64_t id) override {
    in_.id = id;
    if (!has_row(statements_->find_message)) return std::nullopt;
    return Removal{{out_.conversation_id, static_cast<Corvan::SessionType>(out_.kind)},
                   out_.unread,
                   out_.mentions};
  }
  void delete_message(int64_t id) override {
    in_.id = id;
    statements_->delete_message.execute(true);
  }
  void lower_counters(const Removal& removal) override {
    in_.set(removal.conversation);
    in_.unread = removal.unread;
    in_.mention = removal.mentions;
    statements_->lower_counters.execute(true);
  }
  void correct_latest(const ConversationName& name, int64_t deleted_id) override {
    in_.set(name);
    in_.id = deleted_id;
    statements_->correct_latest.execute(true);
  }

  // The message of the current row, without its time.
  MessageResponse message(const ConversationName& name) const {
    MessageResponse message;
    message.session_id_ = name.id;
    message.session_type_ = name.kind;
    message.msg_id_ = out_.id;
    message.object_name_ = out_.object_name;
    message.content_ = out_.content;
    message.sender_ = out_.sender;
    message.server_uid_ = out_.server_uid;
    message.is_receive_ = out_.received != 0;
    message.read_status_ = out_.read_status;
    message.sent_status_ = out_.sent_status;
    return message;
  }

  std::vector<MessageResponse> messages(soci::statement& statement, const ConversationName& name) {
    std::vector<MessageResponse> list;
    read_all(statement, [&] {
      list.push_back(message(name));
      list.back().sent_time_ = out_.sent_time;
    });
    return list;
  }

  std::optional<soci::session> db_;
  Parameters in_;
  Columns out_;
  std::optional<Statements> statements_;
};

}  // namespace

std::unique_ptr<Store> make_soci_store(DraftIndexes indexes) {
  return std::make_unique<SociStore>(indexes);
}

std::string soci_version() {
  std::string version = SOCI_LIB_VERSION;
  std::replace(version.begin(), version.end(), '_', '.');
  return version;
}

}  // namespace corvan_bench
