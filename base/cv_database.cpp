#include "base/cv_database.h"

namespace Corvan {

namespace {

// Written only if everything else exists. A file without a version receives the schema again at its
// next opening, and with it whatever a full disk or a failed call prevented this time. The row id
// is fixed, so that a second run replaces the row.
std::string version_row(const std::map<std::string, std::string>& schema) {
  std::string names;
  for (const auto& entry : schema) names += (names.empty() ? "'" : ",'") + entry.first + "'";
  return "insert or replace into t_version(rowid,database_version) select 1,'1' "
         "where (select count(*) from sqlite_master where name in(" +
         names + "))=" + std::to_string(schema.size());
}

}  // namespace

// The statements use only syntax that SQLite 3.14 can parse, the oldest release that the store runs
// on: a library that meets newer syntax in a schema reports the file as damaged. Inserts leave
// columns out, so every column except the row id has a default.
//
// The planner has no statistics. It assumes that any equality on an index's first column leaves ten
// rows. It uses a partial index only if the statement repeats the index's condition or, for "is not
// null", compares the column. Indexes that look odd keep every statement on its intended plan,
// whatever the store contains and in whatever order its indexes were created. Each index costs time
// in every save; docs/performance.md lists costs and benefits.
std::map<std::string, std::string> CvDatabase::table_index() {
  std::map<std::string, std::string> schema = {
      // Autoincrement: the id of a deleted message is never used again, so whatever still refers to
      // the deleted message, such as an acknowledgement or a latest_id, cannot reach another one.
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
      // Received messages have the client uid 0. As the id follows the type, they are appended to
      // the entries of their type; in an order by conversation or sender, each would change another
      // page. The other columns make the test independent of the table, so that the planner prefers
      // this index to those that begin with the conversation.
      {"t_message_client_uid",
       "create index if not exists t_message_client_uid "
       "on t_message(client_uid,session_type,id,session_id,sender,server_uid)"},

      // clear_message_by_timestamp.
      {"t_message_sent_time",
       "create index if not exists t_message_sent_time on t_message(sent_time)"},

      // clear_sendstatus, at opening: few messages are being sent.
      {"t_message_sending",
       "create index if not exists t_message_sending "
       "on t_message(sent_status) where sent_status=1"},

      // Duplicate tests and look-ups by server uid: save_message, is_message_exist,
      // get_message_by_uid, delete_message by server uids.
      {"t_message_server_uid",
       "create index if not exists t_message_server_uid on t_message(server_uid)"},

      // Everything in one conversation by time. Rows with equal times are ordered by id, in the
      // direction of the query. The columns after the id let queries skip messages without reading
      // their rows: history by kind of message, the newest received or sent message, messages after
      // a time.
      {"t_message_session",
       "create index if not exists t_message_session "
       "on t_message(session_id,session_type,sent_time,id,direction,sent_status,object_name)"},

      // One conversation by id: get_max_message_id. Its number of messages: get_message_count. And
      // clear_session, since the kind is the first column.
      {"t_message_session_type",
       "create index if not exists t_message_session_type on t_message(session_type,session_id)"},

      // update_message_receipt_status: own messages that no receipt covers. The columns of the
      // condition are also columns of the index, because the planner prefers the index that matches
      // more columns; otherwise it would be t_message_session.
      {"t_message_uncovered",
       "create index if not exists t_message_uncovered "
       "on t_message(session_id,session_type,direction,sent_status,sent_time) "
       "where direction=0 and sent_status=0"},

      // get_mention_message and get_unred_mention, which only read rows with direction 2. The store
      // never writes such rows, so the index is empty except in copies of older stores.
      {"t_message_unread",
       "create index if not exists t_message_unread "
       "on t_message(session_id,session_type,direction,sent_time,id,read_status,is_mention) "
       "where direction=2"},

      // The unique key serves every statement on one conversation.
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

      // load_session_with_latestid, called by delete_message by ids. The sums of counters scan it,
      // because it has all their columns. Only the sums over a single kind, muted conversations
      // included, scan t_session_list and read the rows of that kind.
      {"t_session_latest_id",
       "create index if not exists t_session_latest_id "
       "on t_session(latest_id,session_type,silence,unread_count,mention_count)"},

      // The conversation list, read from the end: among equal pins and times the larger kind comes
      // first, and within one kind the younger row. No index begins with the kind: a page of
      // several kinds after the pinned ones would use it and sort all their conversations. The
      // condition is always true. It hides the index from "or is_top=0" in a page's condition,
      // which would otherwise fetch and sort all unpinned conversations.
      {"t_session_list",
       "create index if not exists t_session_list "
       "on t_session(is_top,session_time,session_type) where session_type is not null"},

      // The primary key serves get_sync_time and set_sync_time.
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
