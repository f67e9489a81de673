#include "base/cv_database.h"

namespace Corvan {

namespace {

// Written only when everything else is there: a file without a version receives the schema again at
// its next opening, and so what a full disk or a failed call kept it from having at this one. Under
// a fixed row id, so that a second run replaces the row.
std::string version_row(const std::map<std::string, std::string>& schema) {
  std::string names;
  for (const auto& entry : schema) names += (names.empty() ? "'" : ",'") + entry.first + "'";
  return "insert or replace into t_version(rowid,database_version) select 1,'1' "
         "where (select count(*) from sqlite_master where name in(" +
         names + "))=" + std::to_string(schema.size());
}

}  // namespace

// The statements stay within what SQLite 3.14 can parse, the oldest release that the store runs on:
// an older library that meets newer syntax in a schema reports the file as damaged. Inserts leave
// columns out, so every column but the row id has a default.
//
// The planner sees no statistics: it takes any equality on an index's first column to leave ten
// rows, and believes a condition of a partial index only when the statement repeats it, or, of "is
// not null", compares the column. Where an
// index looks odd, it is so that no statement is led astray whatever a store holds, in whatever
// order its indexes were created. Each one costs every save: docs/performance.md has what it costs
// and what it buys.
std::map<std::string, std::string> CvDatabase::table_index() {
  std::map<std::string, std::string> schema = {
      // Autoincrement: an id never comes back after its message is deleted, so nothing that still
      // names the deleted message, such as an acknowledgement or a latest_id, can reach another
      // one.
      {"t_message",
       "create table if not exists t_message("
       "id integer primary key autoincrement,"
       "session_id text default '',"
       "session_type integer default 0,"
       "object_name text default '',"
       "content text default '',"
       "sender text default '',"
       "direction integer default 0,"
       "sent_status integer default 0,"
       "read_status integer default 0,"
       "is_mention integer default 0,"
       "sent_time integer default 0,"
       "client_uid integer default 0,"
       "server_uid text default '')"},

      // The duplicate test by client key: save_message, both is_message_exist by client key.
      {"t_message_client_uid",
       "create index if not exists t_message_client_uid "
       "on t_message(session_id,session_type,client_uid,sender)"},

      // clear_message_by_timestamp.
      {"t_message_sent_time",
       "create index if not exists t_message_sent_time on t_message(sent_time)"},

      // Opening: the messages that are being sent, which are few.
      {"t_message_sending",
       "create index if not exists t_message_sending "
       "on t_message(sent_status) where sent_status=1"},

      // Duplicate tests and look-ups by server uid: save_message, is_message_exist,
      // get_message_by_uid, delete_message by server uids.
      {"t_message_server_uid",
       "create index if not exists t_message_server_uid on t_message(server_uid)"},

      // Everything within one conversation by time. Rows of equal time come by id: upwards in
      // ascending queries, downwards in descending ones. The columns after the id let a walk pass
      // over a message that a query does not want without reading its row: history by kind of
      // message, the newest received or sent one, what follows a time.
      {"t_message_session",
       "create index if not exists t_message_session "
       "on t_message(session_id,session_type,sent_time,id,direction,sent_status,object_name)"},

      // One conversation by id: get_max_message_id. Its number of messages, and, since the kind is
      // in front, clear_session by kinds.
      {"t_message_session_type",
       "create index if not exists t_message_session_type on t_message(session_type,session_id)"},

      // update_message_receipt_status: own messages that no receipt covers. The columns that its
      // condition names are its own, too: a statement takes the index that meets more columns, and
      // would else take t_message_session.
      {"t_message_uncovered",
       "create index if not exists t_message_uncovered "
       "on t_message(session_id,session_type,direction,sent_status,sent_time) "
       "where direction=0 and sent_status=0"},

      // get_mention_message and get_unred_mention, which look at rows of direction 2 alone. The
      // store never writes one: the index is empty but in copies of older stores.
      {"t_message_unread",
       "create index if not exists t_message_unread "
       "on t_message(session_id,session_type,direction,sent_time,id,read_status,is_mention) "
       "where direction=2"},

      // Its key serves every statement on one conversation.
      {"t_session",
       "create table if not exists t_session("
       "session_id text default '',"
       "session_type integer default 0,"
       "title text default '',"
       "draft text default '',"
       "is_top integer default 0,"
       "session_time integer default 0,"
       "unread_count integer default 0,"
       "mention_count integer default 0,"
       "silence integer default 0,"
       "latest_id integer default 0,"
       "read_time integer default 0,"
       "receipt_time integer default 0,"
       "unique(session_id,session_type))"},

      // load_session_with_latestid, which delete_message by ids calls. What the sums of counters
      // look at is in it as well; they read it from end to end, but for the sum over a single kind,
      // which looks up the conversations of that kind.
      {"t_session_latest_id",
       "create index if not exists t_session_latest_id "
       "on t_session(latest_id,session_type,silence,unread_count,mention_count)"},

      // The conversation list, walked in its order, from the end: of equal pins and times the
      // larger
      // kind comes first, and of one kind the younger row. No index begins with the kind: a page of
      // several kinds past the pinned ones would take it, and sort all their conversations. The
      // condition always holds. It hides the index from a part of a page's condition, "or
      // is_top=0", which would else fetch and sort all unpinned conversations.
      {"t_session_list",
       "create index if not exists t_session_list "
       "on t_session(is_top,session_time,session_type) where session_type is not null"},

      // Its key serves get_sync_time and set_sync_time.
      {"t_sync",
       "create table if not exists t_sync("
       "user_id text primary key default '',"
       "receive_time integer default 0,"
       "sent_time integer default 0)"},

      {"t_version", "create table if not exists t_version(database_version text default '')"},
  };
  schema.emplace("t_version_row", version_row(schema));
  return schema;
}

}  // namespace Corvan
