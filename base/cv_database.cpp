#include "base/cv_database.h"

namespace Corvan {

// The statements stay within what every SQLite 3 can parse: an older library that meets newer
// syntax in a schema reports the file as damaged. Inserts leave columns out, so every column but
// the row id has a default.
std::map<std::string, std::string> CvDatabase::table_index() {
  return {
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

      // Duplicate tests and look-ups by server uid: save_message, is_message_exist,
      // get_message_by_uid, delete_message by server uids.
      {"t_message_server_uid",
       "create index if not exists t_message_server_uid on t_message(server_uid)"},

      // Everything within one conversation by time: the history pager, get_mention_message,
      // get_maxtime, get_max_message_id, get_client_uid, get_message_latestid, is_message_exist by
      // time,
      // update_message_status, update_message_receipt_status, get_unred_mention, get_message_count,
      // delete_message of one conversation. Rows of equal time come by id: upwards in ascending
      // queries, downwards in descending ones.
      {"t_message_session",
       "create index if not exists t_message_session "
       "on t_message(session_id,session_type,sent_time)"},

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

      // load_session_with_latestid, which delete_message by ids calls.
      {"t_session_latest_id",
       "create index if not exists t_session_latest_id on t_session(latest_id)"},

      // The conversation list, and the sums and clear_session by kind.
      {"t_session_list",
       "create index if not exists t_session_list on t_session(session_type,is_top,session_time)"},

      // Its key serves get_sync_time and set_sync_time.
      {"t_sync",
       "create table if not exists t_sync("
       "user_id text primary key default '',"
       "receive_time integer default 0,"
       "sent_time integer default 0)"},

      {"t_version", "create table if not exists t_version(database_version text default '')"},

      // Under a fixed row id, so that a second run replaces the row.
      {"t_version_row", "insert or replace into t_version(rowid,database_version) values(1,'1')"},
  };
}

}  // namespace Corvan
