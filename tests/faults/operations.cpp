#include "tests/faults/operations.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "base/cv_database.h"
#include "tests/support/store_test.h"
#include "tests/support/uncounted.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

namespace {

constexpr auto kRoom = Corvan::CV_GROUP;
constexpr auto kPeer = Corvan::CV_PRIVATE;
constexpr int kPeerMessages = 60;

// ---- Results as text ----------------------------------------------------------------------------

std::string one(bool value) {
  return value ? "true" : "false";
}
std::string one(const std::string& value) {
  return value;
}
std::string one(const char* value) {
  return value;
}
std::string one(int32_t value) {
  return std::to_string(value);
}
std::string one(int64_t value) {
  return std::to_string(value);
}
std::string one(const MessageResponse& m) {
  std::ostringstream out;
  out << m.msg_id_ << ":" << m.session_id_ << ":" << m.session_type_ << ":" << m.sender_ << ":"
      << m.object_name_ << ":" << m.content_.substr(0, 5) << ":" << m.server_uid_ << ":"
      << m.is_receive_ << m.read_status_ << m.sent_status_ << ":" << m.sent_time_;
  return out.str();
}
std::string one(const Session& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.is_top_ << ":" << s.session_time_
      << ":" << s.unread_count_ << ":" << s.mention_count_ << ":" << s.latest_id_ << ":"
      << s.content_.substr(0, 5);
  return out.str();
}
std::string one(const SessionInfo& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.is_top_ << ":" << s.session_time << ":"
      << s.unread_count_ << ":" << s.mention_count_ << ":" << s.message_.msg_id_ << ":"
      << s.message_.content_.substr(0, 5);
  return out.str();
}
std::string one(const UpdateValue& u) {
  return std::to_string(u.msg_id_) + ":" + u.server_uid_old_;
}
template <typename Element>
std::string one(const std::vector<Element>& elements) {
  std::string all = "[";
  for (const Element& each : elements) all += (all.size() > 1 ? " " : "") + one(each);
  return all + "]";
}

template <typename... Values>
std::string text(const Values&... values) {
  const Uncounted uncounted;
  std::string all;
  ((all += (all.empty() ? "" : ", ") + one(values)), ...);
  return all;
}

// The first of `all`, as many as there were rows; none after a failed preparing.
std::vector<std::string> first(const std::vector<std::string>& all, int rows) {
  return {all.begin(), all.begin() + std::max(rows, 0)};
}

// ---- The rows, as results show them -------------------------------------------------------------

const std::string kMessage1 = "1:room:2:u01:CV:TxtMsg:hello:s1:100:100";
const std::string kMessage2 = "2:room:2:me:CV:TxtMsg:hello:s2:010:200";
const std::string kMessage3 = "3:room:2:me:CV:TxtMsg:hello::012:300";
const std::string kRoomEntry = "room:2:0:300:1:1:3:hello";
const std::string kPeerEntry = "peer:1:0:1059:60:0:63:xxxxx";
const std::string kPinnedEntry = "old:3:1:1000000:0:0:-1:";

std::string peer_message(int i) {
  return std::to_string(i + 4) + ":peer:1:u01:CV:TxtMsg:xxxxx:p" + std::to_string(i) +
         ":100:" + std::to_string(1000 + i);
}

// ---- Calls and answers that several operations share --------------------------------------------

const char* const kMarkFailed = "update t_message set sent_status=2 where sent_status=1";
const char* const kByServerUid = "select 1 from t_message where server_uid=?";
const char* const kByClientKey = "select id,server_uid from t_message where session_id=?";
const char* const kSessionExists = "select 1 from t_session where session_id=?";
const char* const kReadSession = "select session_time,latest_id,unread_count,mention_count from";
const char* const kReadTime = "select read_time from t_session";
const char* const kReceiptTime = "select receipt_time from t_session";
const char* const kMarkRead = "update t_message set read_status=(case";
const char* const kNewest = "select id,sent_time from t_message where session_id=?";
const char* const kPointAt = "update t_session set latest_id=?";
const char* const kHistory = "select id,content,direction,read_status,sent_time,object_name,";
const char* const kPage = "select session_id,session_type,title,draft,is_top,session_time,";
const char* const kPageMessages = "select session_id,session_type,content,object_name,sender,";
const char* const kSyncTimes = "select receive_time,sent_time from t_sync";

// The part of a save that follows the duplicate tests, of a message newer than its conversation or
// live.
std::string insert_and_move(Answers& a) {
  if (!a.done("insert into t_message(")) return text(-1);
  const int64_t id = a.last_row_id();
  if (a.row(kSessionExists)) {
    a.run(kReadSession);
    a.run("update t_session set session_time=?,unread_count=?");
  } else {
    a.run("insert into t_session(");
  }
  return text(id);
}

// Points a conversation at its newest message.
void refresh_latest(Answers& a) {
  if (a.row_or_done(kNewest)) a.run(kPointAt);
}

// A page of history, read by the id of its anchor. `all` holds what it gives when nothing fails.
std::vector<std::string> page_from(Answers& a, bool anchored, const std::vector<std::string>& all) {
  const bool found = a.row(anchored ? "select sent_time from t_message where id=?"
                                    : "select sent_time from t_message where session_id=?");
  // Without its time the anchor is at 0, or, behind the newest message, at 1.
  const int rows = a.rows(kHistory);
  return found ? first(all, rows) : std::vector<std::string>{};
}

std::string page_text(const std::vector<std::string>& page) {
  return text(!page.empty(), page);
}

// Whether the SQLite library deletes securely unless told otherwise. Asked late: SQLite is not used
// before main().
bool deletes_securely() {
  static const bool answer = rows(":memory:", "pragma secure_delete") != Rows{"0"};
  return answer;
}

// ---- The operations -----------------------------------------------------------------------------

using Operations = std::vector<Operation>;

Operations frame(const std::string& folder) {
  const auto open = [folder](CvDbSingleton& s) {
    return text(s.init_open_db(cvrtc::Pathname(folder), "", "me"));
  };
  const auto opened = [folder](Answers& a) {
    if (a.run(folder + "corvan") != 0) return text(false);
    a.run("pragma journal_mode=WAL");
    a.run("pragma wal_autocheckpoint=5000");
    a.run("pragma temp_store=2");
    const bool has_version =
        a.row("select name from sqlite_master") && a.row("select database_version");
    a.begin();
    if (!has_version) {
      a.run("pragma page_size=4096");
      for (const auto& entry : Corvan::CvDatabase::table_index()) a.run(entry.second);
      a.run("pragma user_version=1");
    }
    if (!a.row("pragma secure_delete") || !deletes_securely()) a.run("pragma secure_delete=ON");
    a.run(kMarkFailed);
    a.commit();
    return text(true);
  };
  return {
      {"Create", open, opened, {}, Operation::kNoFile},
      {"Open", open, opened, {}, Operation::kClosed},
      {"Close", [](CvDbSingleton& s) { return s.close_db(), text(""); },
       [](Answers&) { return text(""); },
       // So that there is something to bring from the log into the file.
       [](CvDbSingleton& s) { s.set_silence("room", kRoom, 2); }},
      {"Version", [](CvDbSingleton& s) { return s.get_database_version(); },
       [](Answers& a) {
         if (!a.row("select name from sqlite_master")) return text("");
         return text(a.row("select database_version from t_version") ? "1" : "");
       }},
      {"CheckIntegrity",
       [](CvDbSingleton& s) {
         std::string result;
         const bool sound = s.check_integrity(result);
         const bool named = sound || result == "not a database file";
         return text(sound, named ? result : "findings");
       },
       [](Answers& a) {
         if (!a.prepared("pragma integrity_check;")) {
           return a.run("pragma integrity_check;"), text(false, "not a database file");
         }
         // It ends at "ok", else with the last finding.
         return a.row("pragma integrity_check;") ? text(true, "ok") : text(false, "findings");
       }},
      {"IsUnlocked", [](CvDbSingleton& s) { return text(s.is_db_unlocked("")); },
       [](Answers& a) { return text(a.run("select type from sqlite_master;")); }},
      {"MarkFailed", [](CvDbSingleton& s) { return s.clear_sendstatus(true), text(""); },
       [](Answers& a) {
         a.run(kMarkFailed);
         return text("");
       }},
      {"CopyOlderStore", [](CvDbSingleton& s) { return s.createdb_copydata(), text(""); },
       [](Answers& a) {
         a.begin();
         // Of each of the tables, and of the index; SQLite's own tables and keys lie between them.
         constexpr std::array<int, 8> kStatements = {0, 1, 1, 2, 2, 3, 3, 4};
         const int rows = a.rows("select type,tbl_name,sql from odb.sqlite_master");
         const int statements = kStatements.at(static_cast<std::size_t>(std::max(rows, 0)));
         for (int i = 0; i < statements; ++i) a.run("CREATE ");
         if (rows >= 0) {
           a.run("insert or replace into t_sync select");
           a.run("insert or replace into t_message select");
           a.run("insert or replace into t_session select");
           if (a.row("pragma odb.user_version")) a.run("pragma user_version=7");
         }
         a.commit();
         return text("");
       },
       [folder](CvDbSingleton& s) { s.execute_none_query("attach '" + folder + "older' as odb"); }},
      {"Transaction",
       [](CvDbSingleton& s) {
         const bool begun = s.start_transaction();
         try {
           const int64_t id = save(s, NewMessage().at(900).named("n1"));
           const bool sent = s.update_sent_status(2, 3);
           return text(begun, id, sent, s.commit_transaction());
         } catch (const std::bad_alloc&) {
           s.commit_transaction();  // the caller's to end
           throw;
         }
       },
       [](Answers& a) {
         const bool begun = a.begin();
         std::string id = text(-1);
         if (!a.row(kByServerUid)) id = insert_and_move(a);
         const bool sent = a.done("update t_message set sent_status=?");
         return text(begun, id, sent, a.commit());
       }},
      {"SetSyncTime", [](CvDbSingleton& s) { return text(s.set_sync_time(5, true)); },
       [](Answers& a) {
         a.run(kSyncTimes);  // both count as 0 when they cannot be read
         return text(a.done("replace into t_sync"));
       }},
      {"SetSyncTimeNotLater", [](CvDbSingleton& s) { return text(s.set_sync_time(4, false)); },
       [](Answers& a) {
         if (a.row(kSyncTimes)) return text(false);
         return text(a.done("replace into t_sync"));
       }},
      {"GetSyncTime",
       [](CvDbSingleton& s) {
         int64_t received = -1;
         int64_t sent = -1;
         const bool read = s.get_sync_time(&received, &sent);
         return text(read, received, sent);
       },
       [](Answers& a) { return a.row(kSyncTimes) ? text(true, 3, 4) : text(false, -1, -1); }},
  };
}

Operations saving() {
  return {
      {"SaveFirstOfConversation",
       [](CvDbSingleton& s) {
         return text(save(s, NewMessage().in("new", kPeer).named("n1").client(8).mention()));
       },
       [](Answers& a) {
         if (a.row(kByServerUid) || a.row(kByClientKey)) return text(-1);
         return insert_and_move(a);
       }},
      {"SaveLive",
       [](CvDbSingleton& s) {
         return text(save(s, NewMessage().at(900).named("n1").text(std::string(9000, 'y'))));
       },
       [](Answers& a) { return a.row(kByServerUid) ? text(-1) : insert_and_move(a); }},
      {"SaveKnownServerUid",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().named("s1"))); },
       [](Answers& a) { return a.row(kByServerUid) ? text(-1) : insert_and_move(a); }},
      {"SaveKnownClientUid",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().own(5).at(900))); },
       [](Answers& a) { return a.row(kByClientKey) ? text(-1) : insert_and_move(a); }},
      {"SaveEcho",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().own(6).at(900).named("n1"))); },
       [](Answers& a) {
         if (a.row(kByServerUid)) return text(-1);
         if (!a.row(kByClientKey)) return insert_and_move(a);
         a.run("update t_message set sent_status=0,server_uid=?");
         return text(3);
       }},
      {"SaveFetchedOlder",
       [](CvDbSingleton& s) { return text(save(s, NewMessage().at(1).fetched())); },
       [](Answers& a) {
         if (!a.done("insert into t_message(")) return text(-1);
         const int64_t id = a.last_row_id();
         if (!a.row(kSessionExists)) {
           a.run("insert into t_session(");
         } else if (!a.row(kReadSession)) {
           a.run("update t_session set session_time=?,unread_count=?");
         }
         return text(id);
       }},
      {"SaveBatch",
       [](CvDbSingleton& s) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 3; ++i) {
           batch.push_back(std::make_unique<MessageResponse>());
           batch.back()->session_id_ = "room";
           batch.back()->session_type_ = kRoom;
           batch.back()->msg_id_ = -1;
           batch.back()->is_store_ = true;
         }
         const bool saved = s.save_message(batch);
         return text(saved, batch[0]->msg_id_, batch[1]->msg_id_, batch[2]->msg_id_);
       },
       [](Answers& a) {
         const char* const insert = "insert into t_message(";
         if (!a.prepared(insert)) return a.run(insert), text(false, -1, -1, -1);
         std::string ids;
         for (int i = 0; i < 3; ++i) {
           a.run(insert);
           ids += (i > 0 ? ", " : "") + text(a.last_row_id());
         }
         return text(true, ids);
       }},
      {"ExistByTime",
       [](CvDbSingleton& s) { return text(s.is_message_exist("room", kRoom, int64_t{50})); },
       [](Answers& a) { return text(a.row("select 1 from t_message where session_id=?")); }},
      {"ExistByUids",
       [](CvDbSingleton& s) {
         std::vector<std::string> uids;
         const bool read = s.is_message_exist("'s1','x','s2'", uids);
         return text(read, uids);
       },
       [](Answers& a) {
         const int rows = a.rows("select server_uid from t_message where server_uid in(");
         return text(rows >= 0, first({"s1", "s2"}, rows));
       }},
      {"ExistBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         for (UpdateValue& each : values) {
           each.session_id_ = "room";
           each.session_type_ = 2;
           each.sender_ = "me";
         }
         values[0].client_uid_ = 5;
         values[1].client_uid_ = 6;
         const bool matched = s.is_message_exist(values);
         return text(matched, values);
       },
       [](Answers& a) {
         if (!a.prepared(kByClientKey)) {
           a.run(kByClientKey);
           return text(false, std::vector<std::string>{"-1:", "-1:"});
         }
         const bool one_found = a.row(kByClientKey);
         const bool two_found = a.row(kByClientKey);
         return text(one_found || two_found, std::vector<std::string>{one_found ? "2:s2" : "-1:",
                                                                      two_found ? "3:" : "-1:"});
       }},
      {"Complete",
       [](CvDbSingleton& s) { return s.set_send_time_for_dup_msg(3, 900, "n1"), text(""); },
       [](Answers& a) {
         a.run("update t_message set sent_status=0,server_uid=?");
         return text("");
       }},
      {"CompleteBatch",
       [](CvDbSingleton& s) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = 3;
         values[0].server_uid_new_ = "n1";
         values[1].msg_id_ = 2;
         values[1].server_uid_new_ = "n2";
         s.set_send_time_for_dup_msg(values);
         return text("");
       },
       [](Answers& a) {
         const char* const complete = "update t_message set sent_status=0,server_uid=?";
         const bool prepared = a.prepared(complete);
         a.run(complete);
         if (prepared) a.run(complete);
         return text("");
       }},
      {"ExistByUid", [](CvDbSingleton& s) { return text(s.is_message_exist("p30")); },
       [](Answers& a) { return text(a.row(kByServerUid)); }},
      {"ExistByClientKey",
       [](CvDbSingleton& s) {
         int64_t id = -7;
         std::string uid = "kept";
         const bool found = s.is_message_exist(5, "me", "room", 2, id, uid);
         return text(found, id, uid);
       },
       [](Answers& a) {
         return a.row(kByClientKey) ? text(true, 2, "s2") : text(false, -7, "kept");
       }},
  };
}

Operations state() {
  return {
      {"SetSendTime",
       [](CvDbSingleton& s) { return s.set_send_time(3, 999, "n1", "room", kRoom, 0), text(""); },
       [](Answers& a) {
         a.begin();
         if (a.done("update t_message set sent_status=0,server_uid=?,sent_time=?")) {
           a.run(kReadSession);
           a.run("update t_session set session_time=?,latest_id=?");
         }
         a.commit();
         return text("");
       }},
      {"SetSendTimeOlder",
       [](CvDbSingleton& s) { return s.set_send_time(3, 7, "", "room", kRoom, 1), text(""); },
       [](Answers& a) {
         a.begin();
         if (a.done("update t_message set sent_status=2,sent_time=?") && !a.row(kReadSession)) {
           a.run("update t_session set session_time=?,latest_id=?");
         }
         a.commit();
         return text("");
       }},
      {"SetSendtime", [](CvDbSingleton& s) { return text(s.set_sendtime(3, 0, "", 7)); },
       [](Answers& a) { return text(a.run("update t_message set sent_status=2 where id=?")); }},
      {"UpdateSentStatus", [](CvDbSingleton& s) { return text(s.update_sent_status(2, 3)); },
       [](Answers& a) { return text(a.done("update t_message set sent_status=?")); }},
      {"SetRead", [](CvDbSingleton& s) { return text(s.set_read_status(1, 1)); },
       [](Answers& a) {
         a.begin();
         const bool set =
             a.row("select session_id,session_type,read_status,is_mention,sent_time") &&
             a.done("update t_message set read_status=?");
         if (set) a.run("update t_session set unread_count=unread_count-1,mention_count=");
         a.commit();
         return text(set);
       }},
      {"SetUnread", [](CvDbSingleton& s) { return text(s.set_read_status(2, 0)); },
       [](Answers& a) {
         a.begin();
         const bool set =
             a.row("select session_id,session_type,read_status,is_mention,sent_time") &&
             a.done("update t_message set read_status=?");
         if (set) a.run("update t_session set unread_count=unread_count+1 where");
         a.commit();
         return text(set);
       }},
      {"Receipt",
       [](CvDbSingleton& s) { return text(s.update_message_receipt_status("room", kRoom, 250)); },
       [](Answers& a) {
         a.run(kReceiptTime);
         const bool done = a.done("update t_message set sent_status=3");
         if (done) a.run("update t_session set receipt_time=?");
         return text(done);
       }},
      {"SetContent",
       [](CvDbSingleton& s) {
         return text(s.set_message_content(1, std::string(9000, 'z'), "CV:New"));
       },
       [](Answers& a) { return text(a.done("update t_message set content=?,object_name=?")); }},
      {"ClientUidOfConversation",
       [](CvDbSingleton& s) {
         int64_t uid = -7;
         s.get_client_uid("room", kRoom, uid);
         return text(uid);
       },
       [](Answers& a) { return text(a.row("select client_uid from t_message") ? 5 : -7); }},
      {"ClientUidOfMessage",
       [](CvDbSingleton& s) {
         int64_t uid = -7;
         s.get_client_uid(3, uid);
         return text(uid);
       },
       [](Answers& a) {
         return text(a.row("select client_uid from t_message where id=?") ? 6 : -7);
       }},
      {"CommonText",
       [](CvDbSingleton& s) {
         return text(s.common_message_text(2, "v", "update t_message set server_uid=? where id=?"));
       },
       [](Answers& a) { return text(a.done("update t_message set server_uid=?")); }},
      {"CommonInt",
       [](CvDbSingleton& s) {
         return text(s.common_message_int(2, 9, "update t_message set read_status=? where id=?"));
       },
       [](Answers& a) { return text(a.done("update t_message set read_status=?")); }},
  };
}

Operations deleting() {
  return {
      {"DeleteByIds",
       [](CvDbSingleton& s) {
         return text(s.delete_message(std::vector<int64_t>{1, 3, 63}));
       },
       [](Answers& a) {
         a.begin();
         // Message 1 alone is unread in "room"; messages 1, 3 and 63 come in this order.
         const int unread = a.rows("select session_id,session_type,read_status,is_mention,");
         const int latest = a.rows("select session_id,session_type from t_session where latest_id");
         const bool deleted = a.done("delete from t_message where id in(1,3,63)");
         if (deleted) {
           if (unread >= 1) a.run("update t_session set unread_count=unread_count-1,mention_count");
           if (unread >= 3) a.run("update t_session set unread_count=unread_count-1 where");
           for (int i = 0; i < latest; ++i) refresh_latest(a);
         }
         a.commit();
         return text(deleted);
       }},
      {"DeleteByUids",
       [](CvDbSingleton& s) {
         return s.delete_message("room", kRoom, {"s1", "p7"}), text("");
       },
       [](Answers& a) {
         if (a.done("delete from t_message where server_uid in('s1','p7')")) refresh_latest(a);
         return text("");
       }},
      {"DeleteOfConversation", [](CvDbSingleton& s) { return text(s.delete_message("peer", 1)); },
       [](Answers& a) { return text(a.done("delete from t_message where session_id=?")); }},
      {"ClearMessage", [](CvDbSingleton& s) { return text(s.clear_message("peer", kPeer, false)); },
       [](Answers& a) {
         const bool deleted = a.done("delete from t_message where session_id=?");
         a.run(kPointAt);
         return text(deleted);
       }},
      {"ClearMessageClean",
       [](CvDbSingleton& s) { return text(s.clear_message("peer", kPeer, true)); },
       [](Answers& a) {
         a.run("delete from t_message where session_id=?");
         a.run(kPointAt);
         return text(a.done("VACUUM"));
       }},
      {"ClearByTime",
       [](CvDbSingleton& s) { return text(s.clear_message_by_timestamp(1030, false)); },
       [](Answers& a) { return text(a.done("delete from t_message where sent_time<?")); }},
      {"ClearByTimeClean",
       [](CvDbSingleton& s) { return text(s.clear_message_by_timestamp(1030, true)); },
       [](Answers& a) {
         const char* const clear = "delete from t_message where sent_time<?";
         const bool prepared = a.prepared(clear);
         const bool deleted = a.done(clear);
         if (prepared) a.run("VACUUM");
         return text(deleted);
       }},
  };
}

Operations queries() {
  return {
      {"MessageById",
       [](CvDbSingleton& s) {
         MessageResponse m;
         m.msg_id_ = 1;
         const bool found = s.get_message_by_id(m);
         return text(found, m);
       },
       [](Answers& a) {
         MessageResponse kept;
         kept.msg_id_ = 1;
         return a.row("select session_id,session_type,content,direction") ? text(true, kMessage1)
                                                                          : text(false, kept);
       }},
      {"MessageByUid",
       [](CvDbSingleton& s) {
         MessageResponse m;
         m.server_uid_ = "p33";
         const bool found = s.get_message_by_uid(m);
         return text(found, m);
       },
       [](Answers& a) {
         MessageResponse kept;
         kept.server_uid_ = "p33";
         return a.row("select session_id,session_type,content,direction")
                    ? text(true, peer_message(33))
                    : text(false, kept);
       }},
      {"HistoryFromNewest",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_history_message_by_time("room", kRoom, "", 0, 2, page, true);
         return text(found, page);
       },
       [](Answers& a) {
         return page_text(page_from(a, false, {kMessage3, kMessage2}));
       }},
      {"HistoryOfKind",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_history_message_by_object_name(
             "peer", kPeer, {"CV:TxtMsg", "CV:Other"}, 34, 3, page, true);
         return text(found, page);
       },
       [](Answers& a) {
         return page_text(
             page_from(a, true, {peer_message(29), peer_message(28), peer_message(27)}));
       }},
      {"Mentions",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_mention_message("room", kRoom, page);
         return text(found, page);
       },
       [](Answers& a) {
         a.run("select id,content,read_status,sent_time,object_name,sender,server_uid");
         return page_text({});
       }},
      // Its second anchor, 200, is no message's id: the newer half is the oldest of the
      // conversation, oldest first, which goes in front of it newest first.
      {"Matched",
       [](CvDbSingleton& s) {
         std::vector<MessageResponse> page;
         const bool found = s.get_matched_message("room", kRoom, 3, 1, 1, page);
         return text(found, page);
       },
       [](Answers& a) {
         a.begin();
         std::vector<std::string> span = page_from(a, true, {kMessage2});
         // After an older half that is empty the anchor is message 2: what follows it.
         const bool second_anchor = span.empty();
         const bool anchored = a.row("select sent_time from t_message where id=?");
         const std::vector<std::string> newer =
             second_anchor && anchored ? std::vector<std::string>{kMessage3}
                                       : std::vector<std::string>{kMessage1, kMessage2};
         for (const std::string& each : first(newer, a.rows(kHistory))) {
           span.insert(span.begin(), each);
         }
         a.commit();
         return page_text(span);
       }},
      {"MaxTime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         s.get_max_time(time, kPeer, "peer", 1);
         return text(time);
       },
       [](Answers& a) { return text(a.row("select sent_time from t_message") ? 1059 : -7); }},
      {"MaxId", [](CvDbSingleton& s) { return text(s.get_max_message_id(kPeer, "peer", 2)); },
       [](Answers& a) { return text(a.row("select id from t_message") ? 63 : -1); }},
      {"StateById",
       [](CvDbSingleton& s) {
         std::string id = "kept";
         int32_t kind = -7;
         bool unread = false;
         bool mention = false;
         int64_t time = -7;
         const bool found = s.get_message_by_id(1, id, kind, unread, mention, time);
         return text(found, id, kind, unread, mention, time);
       },
       [](Answers& a) {
         return a.row("select session_id,session_type,read_status,is_mention,sent_time")
                    ? text(true, "room", 2, true, true, 100)
                    : text(false, "kept", -7, false, false, -7);
       }},
      {"SendTime", [](CvDbSingleton& s) { return text(s.get_send_time(63)); },
       [](Answers& a) {
         return text(a.row("select sent_time from t_message where id") ? 1059 : 0);
       }},
      {"MarkRead", [](CvDbSingleton& s) { return text(s.update_message_status("peer", 1)); },
       [](Answers& a) {
         a.run(kReadTime);
         return text(a.done(kMarkRead));
       }},
      {"ReadTime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         s.get_readtime("room", 2, time);
         return text(time);
       },
       [](Answers& a) { return text(a.row(kReadTime) ? 0 : -7); }},
  };
}

Operations conversations() {
  return {
      {"Pin", [](CvDbSingleton& s) { return text(s.set_is_top("room", kRoom, true, true)); },
       [](Answers& a) {
         // A conversation that could not be looked for is created, and the key refuses it.
         return text(a.row(kSessionExists) ? a.done("update t_session set is_top=?")
                                           : a.done("insert into t_session(is_top,"));
       }},
      {"PinMissing", [](CvDbSingleton& s) { return text(s.set_is_top("new", kRoom, true, true)); },
       [](Answers& a) {
         a.run(kSessionExists);
         return text(a.done("insert into t_session(is_top,"));
       }},
      {"Draft", [](CvDbSingleton& s) { return text(s.set_message_draft("room", kRoom, "d")); },
       [](Answers& a) {
         return text(a.row(kSessionExists) ? a.done("update t_session set draft=?,session_time=?")
                                           : a.done("insert into t_session(draft,"));
       }},
      {"ClearDraft", [](CvDbSingleton& s) { return text(s.set_message_draft("room", kRoom, "")); },
       [](Answers& a) {
         return text(!a.row(kSessionExists) || a.done("update t_session set draft=? where"));
       }},
      {"GetDraft",
       [](CvDbSingleton& s) {
         std::string draft = "kept";
         const bool found = s.get_message_draft("room", kRoom, draft);
         return text(found, draft);
       },
       [](Answers& a) {
         a.run("select draft_message from t_session");
         return text(false, "kept");
       }},
      {"SetSilence", [](CvDbSingleton& s) { return text(s.set_silence("room", kRoom, 2)); },
       [](Answers& a) { return text(a.done("update t_session set silence=?")); }},
      {"GetSilence",
       [](CvDbSingleton& s) {
         int32_t status = -7;
         const bool found = s.get_silence("room", kRoom, status);
         return text(found, status);
       },
       [](Answers& a) {
         return a.row("select silence from t_session") ? text(true, 0) : text(false, -7);
       }},
      {"RemoveSession", [](CvDbSingleton& s) { return text(s.remove_session("peer", kPeer)); },
       [](Answers& a) {
         if (!a.done("delete from t_session where session_id=?")) return text(false);
         a.run(kReadTime);
         a.run(kMarkRead);
         return text(true);
       }},
      {"ClearSession",
       [](CvDbSingleton& s) {
         return text(s.clear_session({Corvan::CV_PRIVATE, Corvan::CV_CHATROOM}));
       },
       [](Answers& a) {
         a.begin();
         const bool cleared = a.done("delete from t_session where session_type in(1,3)") &&
                              a.done("delete from t_message where session_type in(1,3)");
         a.commit();
         return text(cleared);
       }},
      {"CommonSession",
       [](CvDbSingleton& s) {
         return text(s.common_session_operation(
             "room", 2, "update t_session set title='t' where session_id=? and session_type=?"));
       },
       [](Answers& a) { return text(a.done("update t_session set title='t'")); }},
      {"AddSession",
       [](CvDbSingleton& s) { return text(s.add_session("new", kRoom, 5, 3, "title", 1, 1)); },
       [](Answers& a) { return text(a.done("insert into t_session(session_id,")); }},
      {"GetSessiontime",
       [](CvDbSingleton& s) {
         int64_t time = -7;
         int64_t id = -7;
         int32_t unread = -7;
         int32_t mention = -7;
         s.get_sessiontime("room", 2, time, id, unread, mention);
         return text(time, id, unread, mention);
       },
       [](Answers& a) { return a.row(kReadSession) ? text(300, 3, 1, 1) : text(-7, -7, -7, -7); }},
  };
}

Operations lists() {
  return {
      {"List",
       [](CvDbSingleton& s) {
         std::vector<SessionInfo> page;
         const bool found = s.get_session_list_by_page(
             {Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM}, 0, 9, page);
         return text(found, page);
       },
       [](Answers& a) {
         const int rows = a.rows(kPage);
         if (rows <= 0) return text(false, "[]");
         // Messages come in the order of their ids: that of "room" first.
         const int messages = a.rows(kPageMessages);
         std::vector<std::string> all = {kPinnedEntry, kPeerEntry, kRoomEntry};
         if (messages < 1) all[2].erase(all[2].size() - 5);
         // The page has "peer" when it has "room", whose message then comes first.
         if (messages < (rows == 3 ? 2 : 1)) all[1].erase(all[1].size() - 5);
         return text(true, first(all, rows));
       }},
      {"GetSession",
       [](CvDbSingleton& s) {
         SessionInfo info;
         info.session_id_ = "room";
         info.session_type_ = kRoom;
         const bool found = s.get_session(info);
         return text(found, info);
       },
       [](Answers& a) {
         SessionInfo kept;
         kept.session_id_ = "room";
         kept.session_type_ = kRoom;
         if (!a.row("select title,draft,is_top,session_time")) return text(false, kept);
         const bool message = a.row("select content,object_name,sender,direction,");
         return text(true, message ? kRoomEntry : "room:2:0:300:1:1:3:");
       }},
      {"LoadMessages",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool read = s.load_message(found, "1,2");
         return text(read, found);
       },
       [](Answers& a) {
         const int rows = a.rows(kPageMessages);
         return text(rows >= 0,
                     first({"room:2:0:100:0:0:0:hello", "room:2:0:200:0:0:0:hello"}, rows));
       }},
      {"UnreadOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool any = s.load_distinct_session_with_unread(found, "1,4");
         return text(any, found);
       },
       [](Answers& a) {
         const int rows = a.rows("select session_id,session_type,read_status,is_mention,sent_time");
         return page_text(first({"room:2:0:100:1:1:0:", "peer:1:0:1000:1:0:0:"}, rows));
       }},
      {"SessionsOfIds",
       [](CvDbSingleton& s) {
         std::vector<Session> found;
         const bool any = s.load_session_with_latestid(found, "3,63");
         return text(any, found);
       },
       [](Answers& a) {
         const int rows = a.rows("select session_id,session_type from t_session where latest_id");
         return page_text(first({"room:2:0:0:0:0:0:", "peer:1:0:0:0:0:0:"}, rows));
       }},
      {"NewestOfConversation",
       [](CvDbSingleton& s) {
         int64_t id = -7;
         int64_t time = -7;
         const bool read = s.get_message_latestid("peer", 1, id, time);
         return text(read, id, time);
       },
       [](Answers& a) { return a.row(kNewest) ? text(true, 63, 1059) : text(false, -7, -7); }},
      {"PointAt", [](CvDbSingleton& s) { return text(s.set_message_latestid("room", 2, 1, 100)); },
       [](Answers& a) { return text(a.done("update t_session set latest_id=?,session_time=?")); }},
  };
}

Operations counters() {
  return {
      {"SyncUnread", [](CvDbSingleton& s) { return text(s.sync_unread("room", 2, 50)); },
       [](Answers& a) {
         return text(a.row_or_done("select sum(case read_status") &&
                     a.done("update t_session set unread_count=?,mention_count=?,read_time=?"));
       }},
      {"ClearUnread", [](CvDbSingleton& s) { return text(s.clear_unread("peer", kPeer)); },
       [](Answers& a) {
         a.begin();
         a.run("select sent_time from t_message");
         a.run(kReadTime);
         const bool marked = a.done(kMarkRead);
         if (marked) a.run("update t_session set unread_count=0,mention_count=0,read_time=?");
         a.commit();
         return text(marked);
       }},
      {"SetReceiptTime",
       [](CvDbSingleton& s) { return s.set_receipttime("room", 2, 77), text(""); },
       [](Answers& a) {
         a.run("update t_session set receipt_time=?");
         return text("");
       }},
      {"ReceiptTimes",
       [](CvDbSingleton& s) {
         int64_t one_time = -7;
         int64_t two_time = -7;
         s.get_receipt_time("room", 2, one_time);
         s.get_receipttime("room", 2, two_time);
         return text(one_time, two_time);
       },
       [](Answers& a) {
         const int64_t one_time = a.row(kReceiptTime) ? 0 : -7;
         return text(one_time, a.row(kReceiptTime) ? 0 : -7);
       }},
      {"TotalUnread",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_total_unread_count(unread);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count) from t_session");
         return text(rows >= 0, rows > 0 ? 61 : -7);
       }},
      {"UnreadOfConversation",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_unread_count("peer", kPeer, unread);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select unread_count from t_session");
         return text(rows >= 0, rows > 0 ? 60 : -7);
       }},
      {"MessageCount",
       [](CvDbSingleton& s) {
         int32_t count = -7;
         const bool read = s.get_message_count("peer", kPeer, count);
         return text(read, count);
       },
       [](Answers& a) {
         const int rows = a.rows("select count(id) from t_message");
         return text(rows >= 0, rows > 0 ? 60 : -7);
       }},
      {"UnreadOfKinds",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         const bool read = s.get_cate_unread_count({Corvan::CV_GROUP}, unread, false);
         return text(read, unread);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count) from t_session where silence=0 and");
         return text(rows >= 0, rows > 0 ? 1 : -7);
       }},
      {"UnreadAndMentions",
       [](CvDbSingleton& s) {
         int32_t unread = -7;
         int32_t mention = -7;
         const bool read = s.get_unread_mention_count({}, unread, mention);
         return text(read, unread, mention);
       },
       [](Answers& a) {
         const int rows = a.rows("select sum(unread_count),sum(mention_count) from t_session");
         return rows > 0 ? text(true, 61, 1) : text(rows == 0, -7, -7);
       }},
      {"LowerUnread", [](CvDbSingleton& s) { return text(s.set_unread_by_value("room", 2, 1, 1)); },
       [](Answers& a) {
         return text(a.done("update t_session set unread_count=unread_count-1,"));
       }},
      {"SetReadTime",
       [](CvDbSingleton& s) { return s.set_unread_readtime("room", 2, 88), text(""); },
       [](Answers& a) {
         a.run("update t_session set unread_count=0,mention_count=0,read_time=?");
         return text("");
       }},
      {"ExecuteNone",
       [](CvDbSingleton& s) { return text(s.execute_none_query("delete from t_sync")); },
       [](Answers& a) { return text(a.run("delete from t_sync")); }},
      {"GetPragma", [](CvDbSingleton& s) { return text(s.get_pragma("pragma user_version")); },
       [](Answers& a) { return text(a.row("pragma user_version") ? 1 : -1); }},
  };
}

// An older store: tables that the newer one has as well, one that it has not, and an index.
void create_older(const std::string& file) {
  plant(file, Corvan::CvDatabase::table_index().at("t_message"));
  plant(file, Corvan::CvDatabase::table_index().at("t_session"));
  plant(file, Corvan::CvDatabase::table_index().at("t_sync"));
  plant(file, "create index older_index on t_message(sender)");
  plant(file,
        "insert into t_message(id,session_id,session_type,direction) values(500,'older',1,2)");
  plant(file, "insert into t_session(session_id,session_type) values('older',1)");
  plant(file, "insert into t_sync values('you',8,9)");
  plant(file, "pragma user_version=7");
}

}  // namespace

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

void fill_store(const std::string& folder) {
  create_older(folder + "older");
  CvDbSingleton& store = *CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder), "", "me")) {
    throw std::runtime_error("the store to prepare does not open");
  }
  save(store, NewMessage().at(100).named("s1").mention());
  save(store, NewMessage().own(5).at(200).named("s2"));
  save(store, NewMessage().own(6).at(300).status(1));
  for (int i = 0; i < kPeerMessages; ++i) {
    save(store, NewMessage()
                    .in("peer", kPeer)
                    .at(1000 + i)
                    .named("p" + std::to_string(i))
                    .text(std::string(400, 'x')));
  }
  store.set_is_top("old", Corvan::CV_CHATROOM, true, true);
  store.set_sync_time(3, true);
  store.set_sync_time(4, false);
  CvDbSingleton::delete_instance();
}

std::vector<Operation> operations(const std::string& folder) {
  Operations all = frame(folder);
  for (Operations (*section)() :
       {saving, state, deleting, queries, conversations, lists, counters}) {
    for (Operation& each : section()) all.push_back(std::move(each));
  }
  return all;
}

}  // namespace corvan_test
