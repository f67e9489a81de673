// The SQL texts that several operations share, and the plans that SQLite runs statements with.

#ifndef TESTS_SUPPORT_OPERATIONS_TEXTS_H_
#define TESTS_SUPPORT_OPERATIONS_TEXTS_H_

#include <string>
#include <vector>

namespace corvan_test {

// The plan of a statement, as "explain query plan" shows it. A plan that scans a table or an index
// is an exception and needs a reason. If there is no plan, `shown` is null and the reason says why.
struct QueryPlan {
  const char* shown;
  const char* reason = nullptr;
};

// One text, exactly as the store passes it to SQLite.
struct Text {
  std::string sql;
  QueryPlan plan;

  operator const std::string&() const { return sql; }  // NOLINT(google-explicit-constructor)
};

std::vector<std::string> sql_of(const std::vector<Text>& texts);

// ---- Plans --------------------------------------------------------------------------------------

// Statements that search no rows: inserts, pragmas, transactions, compaction.
constexpr QueryPlan kNoPlan{""};

constexpr QueryPlan kRefused{nullptr, "SQLite refuses to prepare it"};
constexpr QueryPlan kEmptyList{
    nullptr,
    "a list without items matches no row: SQLite ends before the scan that "
    "the plan shows"};

constexpr QueryPlan kScanOfVersion{"SCAN t_version", "the table has one row"};
constexpr QueryPlan kScanOfSchema{"SCAN sqlite_master", "one row for each table and index"};
constexpr QueryPlan kSumOfOneKind{
    "SCAN t_session USING INDEX t_session_list",
    "a sum over conversations; those of the one kind are found in the "
    "list, and each is looked up"};
constexpr QueryPlan kSumOfCounters{"SCAN t_session USING COVERING INDEX t_session_latest_id",
                                   "a sum over conversations, whose counters are in one index"};
constexpr QueryPlan kListFromTop{"SCAN t_session USING INDEX t_session_list",
                                 "walks the list in its order until the page is full"};
constexpr QueryPlan kListAfterPinned{
    "SEARCH t_session USING INDEX t_session_list (is_top=? AND session_time<?)"};
constexpr QueryPlan kScanForKinds{
    "SCAN t_session USING INDEX t_session_list",
    "no index begins with the kind: SQLite would take it for the list"};

constexpr QueryPlan kByLatestId{"SEARCH t_session USING INDEX t_session_latest_id (latest_id=?)"};
constexpr QueryPlan kBySessionKey{
    "SEARCH t_session USING INDEX sqlite_autoindex_t_session_1 (session_id=? AND session_type=?)"};
constexpr QueryPlan kBySessionKeyAlone{
    "SEARCH t_session USING COVERING INDEX sqlite_autoindex_t_session_1 "
    "(session_id=? AND session_type=?)"};
constexpr QueryPlan kByUserId{"SEARCH t_sync USING INDEX sqlite_autoindex_t_sync_1 (user_id=?)"};

constexpr QueryPlan kByRowId{"SEARCH t_message USING INTEGER PRIMARY KEY (rowid=?)"};
constexpr QueryPlan kByServerUidAlone{
    "SEARCH t_message USING COVERING INDEX t_message_server_uid (server_uid=?)"};
constexpr QueryPlan kByServerUidIndex{
    "SEARCH t_message USING INDEX t_message_server_uid (server_uid=?)"};
constexpr QueryPlan kByClientKeyIndex{
    "SEARCH t_message USING COVERING INDEX t_message_client_uid "
    "(client_uid=? AND session_type=?)"};
constexpr QueryPlan kBySending{"SEARCH t_message USING INDEX t_message_sending (sent_status=?)"};
constexpr QueryPlan kBySentTime{"SEARCH t_message USING INDEX t_message_sent_time (sent_time<?)"};
constexpr QueryPlan kByKind{"SEARCH t_message USING INDEX t_message_session_type (session_type=?)"};

// Within one conversation.
constexpr QueryPlan kMentionsOfSession{
    "SEARCH t_message USING INDEX t_message_unread "
    "(session_id=? AND session_type=? AND direction=?)"};
constexpr QueryPlan kUnreadOfSession{
    "SEARCH t_message USING COVERING INDEX t_message_unread "
    "(session_id=? AND session_type=? AND direction=? AND sent_time>?)"};
constexpr QueryPlan kUncoveredBetween{
    "SEARCH t_message USING INDEX t_message_uncovered "
    "(session_id=? AND session_type=? AND direction=? AND sent_status=? AND sent_time>? AND "
    "sent_time<?)"};
constexpr QueryPlan kUncoveredUntil{
    "SEARCH t_message USING INDEX t_message_uncovered "
    "(session_id=? AND session_type=? AND direction=? AND sent_status=? AND sent_time<?)"};
constexpr QueryPlan kIdsOfSession{
    "SEARCH t_message USING COVERING INDEX t_message_session_type "
    "(session_type=? AND session_id=?)"};
constexpr QueryPlan kRowsOfSession{
    "SEARCH t_message USING INDEX t_message_session_type (session_type=? AND session_id=?)"};
constexpr QueryPlan kTimesAfter{
    "SEARCH t_message USING COVERING INDEX t_message_session "
    "(session_id=? AND session_type=? AND sent_time>?)"};
constexpr QueryPlan kRowsAfter{
    "SEARCH t_message USING INDEX t_message_session "
    "(session_id=? AND session_type=? AND sent_time>?)"};
constexpr QueryPlan kRowsBefore{
    "SEARCH t_message USING INDEX t_message_session "
    "(session_id=? AND session_type=? AND sent_time<?)"};
constexpr QueryPlan kRowsByTime{
    "SEARCH t_message USING INDEX t_message_session (session_id=? AND session_type=?)"};
constexpr QueryPlan kTimesOfSession{
    "SEARCH t_message USING COVERING INDEX t_message_session (session_id=? AND session_type=?)"};

// ---- Texts --------------------------------------------------------------------------------------

inline const Text kBegin{"begin transaction", kNoPlan};
inline const Text kCommit{"commit transaction", kNoPlan};
inline const Text kMarkFailed{"update t_message set sent_status=2 where sent_status=1", kBySending};
inline const Text kVersionTable{
    "select name from sqlite_master where type='table' and name='t_version'", kScanOfSchema};
inline const Text kVersion{"select database_version from t_version", kScanOfVersion};
inline const Text kByServerUid{"select 1 from t_message where server_uid=? limit 1",
                               kByServerUidAlone};
inline const Text kByClientKey{
    "select id,server_uid from t_message where session_id=? and session_type=? and client_uid=? and sender=? limit 1",
    kByClientKeyIndex};
inline const Text kInsertMessage{
    "insert into t_message(session_id,session_type,object_name,content,sender,direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) values(?,?,?,?,?,?,?,?,?,?,?,?)",
    kNoPlan};
inline const Text kComplete{
    "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?", kByRowId};
inline const Text kSessionExists{
    "select 1 from t_session where session_id=? and session_type=? limit 1", kBySessionKeyAlone};
inline const Text kReadSession{
    "select session_time,latest_id,unread_count,mention_count from t_session where session_id=? and session_type=?",
    kBySessionKey};
inline const Text kMoveSession{
    "update t_session set session_time=?,unread_count=?,mention_count=?,latest_id=? where session_id=? and session_type=?",
    kBySessionKey};
inline const Text kAddSession{
    "insert into t_session(session_id,session_type,session_time,title,silence,unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)",
    kNoPlan};
inline const Text kSendTime{"select sent_time from t_message where id=?", kByRowId};
inline const Text kReadTime{"select read_time from t_session where session_id=? and session_type=?",
                            kBySessionKey};
inline const Text kMarkRead{
    "update t_message set read_status=(case read_status when 0 then 1 else read_status end),is_mention=0 where session_id=? and session_type=? and sent_time>? and direction=1",
    kRowsAfter};
inline const Text kReceiptTime{
    "select receipt_time from t_session where session_id=? and session_type=?", kBySessionKey};
inline const Text kMessageState{
    "select session_id,session_type,read_status,is_mention,sent_time from t_message where id=?",
    kByRowId};
inline const Text kNewestMessage{
    "select id,sent_time from t_message where session_id=? and session_type=? order by sent_time desc limit 1",
    kTimesOfSession};
inline const Text kDeleteOfSession{"delete from t_message where session_id=? and session_type=?",
                                   kRowsOfSession};
inline const Text kNewestTime{
    "select sent_time from t_message where session_id=? and session_type=? order by sent_time desc limit 1",
    kTimesOfSession};
inline const Text kNewestReceivedTime{
    "select sent_time from t_message where session_id=? and session_type=? and direction=1 order by sent_time desc limit 1",
    kTimesOfSession};
inline const Text kSyncTimes{"select receive_time,sent_time from t_sync where user_id=?",
                             kByUserId};
inline const Text kWriteSyncTimes{
    "replace into t_sync(user_id,receive_time,sent_time) values(?,?,?)", kNoPlan};
inline const Text kRecount{
    "select sum(case read_status when 0 then 1 else 0 end),sum(is_mention) from t_message where session_id=? and session_type=? and sent_time>? and read_status=0 and direction=2",
    kUnreadOfSession};
inline const Text kPointAt{"update t_session set latest_id=? where session_id=? and session_type=?",
                           kBySessionKey};
inline const Text kPointAtAndMove{
    "update t_session set latest_id=?,session_time=? where session_id=? and session_type=?",
    kBySessionKey};

// Beginnings of texts that continue with ids, kinds or conditions.
inline const std::string kUnreadOfIds =
    "select session_id,session_type,read_status,is_mention,sent_time from t_message where id in(";
inline const std::string kSessionsOfIds =
    "select session_id,session_type from t_session where latest_id in(";
inline const std::string kHistoryPage =
    "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid from t_message where session_id=? and session_type=? and sent_time";
inline const std::string kSessionPage =
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,silence,latest_id from t_session where session_type in(";
inline const std::string kMessagesOfPage =
    "select session_id,session_type,content,object_name,sender,direction,read_status,sent_status,sent_time,server_uid from t_message where id in(";
// The beginning of kPointAt and of kPointAtAndMove.
inline const std::string kPointAtAny = "update t_session set latest_id=?";

inline Text unread_of_ids(const std::string& ids, const QueryPlan& plan = kByRowId) {
  return {kUnreadOfIds + ids + ")", plan};
}
inline Text sessions_of_ids(const std::string& ids, const QueryPlan& plan = kByLatestId) {
  return {kSessionsOfIds + ids + ")", plan};
}
inline Text messages_of_page(const std::string& ids) {
  return {kMessagesOfPage + ids + ")", kByRowId};
}

// A page of the conversation list, with its kinds and conditions.
inline Text session_page(const std::string& conditions, const QueryPlan& plan) {
  return {kSessionPage + conditions + " order by is_top desc,session_time desc limit ?", plan};
}

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_TEXTS_H_
