#include "bench/peers/sqlite_draft.h"

#include <array>
#include <stdexcept>

namespace corvan_bench {

namespace {

constexpr std::array kSchema = {
    "create table if not exists conversation("
    "id text not null,"
    "kind integer not null,"
    "title text not null default '',"
    "draft text not null default '',"
    "pinned integer not null default 0,"
    "time integer,"
    "unread integer not null default 0,"
    "mentions integer not null default 0,"
    "silence integer not null default 0,"
    "latest_id integer,"
    "read_time integer not null default 0,"
    "receipt_time integer not null default 0,"
    "primary key(id,kind))",

    "create table if not exists message("
    "id integer primary key,"
    "conversation_id text not null,"
    "kind integer not null,"
    "object_name text not null,"
    "content text not null,"
    "sender text not null,"
    "received integer not null,"
    "sent_status integer not null,"
    "read_status integer not null,"
    "mention integer not null,"
    "sent_time integer not null,"
    "client_uid integer not null,"
    "server_uid text not null)",

    "create index if not exists message_time on message(conversation_id,kind,sent_time)",
};

// The indexes that the draft turns out to need with a real user's messages. Two serve the duplicate
// checks; without them a replay slows down with every message. One has the order of the
// conversation list; without it each page joins and sorts all conversations.
constexpr std::array kNeededIndexes = {
    "create index if not exists message_server_uid on message(server_uid)",
    "create index if not exists message_client_uid on message(conversation_id,kind,client_uid)",
    "create index if not exists conversation_list on conversation(pinned,time)",
};

}  // namespace

void SqliteDraft::open(const std::string& folder) {
  connect(folder + "draft.db");
  execute("pragma journal_mode=WAL");
  execute("pragma synchronous=FULL");
  if (number("pragma synchronous") != 2) throw std::runtime_error("commits are not synced");
  for (const char* sql : kSchema) execute(sql);
  if (indexes_ == DraftIndexes::kAllNeeded) {
    for (const char* sql : kNeededIndexes) execute(sql);
  }
  prepare(within_conversation() ? draft_sql::kFindServerUidInConversation
                                : draft_sql::kFindServerUid);
  execute("update message set sent_status=2 where sent_status=1");
}

int64_t SqliteDraft::save(const MessageResponse& message, bool mention) {
  if (!message.server_uid_.empty() && find_server_uid(message)) return -1;
  if (!message.is_receive_ && find_client_uid(message)) return -1;
  return add(message, mention);
}

int64_t SqliteDraft::add(const MessageResponse& message, bool mention) {
  const int64_t id = insert_message(message, mention);
  move_conversation(message, mention, id);
  return id;
}

void SqliteDraft::mark_read(const ConversationName& name) {
  begin();
  mark_messages_read(name);
  mark_conversation_read(name);
  commit();
}

void SqliteDraft::remove(const std::vector<int64_t>& ids) {
  begin();
  for (const int64_t id : ids) {
    const std::optional<Removal> removal = find_message(id);
    if (!removal) continue;
    delete_message(id);
    lower_counters(*removal);
    correct_latest(removal->conversation, id);
  }
  commit();
}

}  // namespace corvan_bench
