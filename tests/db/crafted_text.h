// Helpers for the tests of texts that a peer or a careless caller could choose.

#ifndef TESTS_DB_CRAFTED_TEXT_H_
#define TESTS_DB_CRAFTED_TEXT_H_

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/store_test.h"

namespace corvan_test {

// Every column of every table, with types and texts as hexadecimal digits, and the schema.
inline constexpr const char* kEverything =
    "select 'm',id,typeof(session_id),hex(session_id),session_type,typeof(object_name),"
    "hex(object_name),typeof(content),hex(content),typeof(sender),hex(sender),direction,"
    "sent_status,read_status,is_mention,sent_time,client_uid,typeof(server_uid),hex(server_uid) "
    "from t_message order by id;"
    "select 's',typeof(session_id),hex(session_id),session_type,typeof(title),hex(title),"
    "typeof(draft),hex(draft),is_top,session_time,unread_count,mention_count,silence,latest_id,"
    "read_time,receipt_time from t_session order by rowid;"
    "select 't',typeof(user_id),hex(user_id),receive_time,sent_time from t_sync order by rowid;"
    "select 'v',hex(database_version) from t_version;"
    "select 'x',type,hex(name),hex(sql) from sqlite_master order by rowid";

// Three messages in two conversations, with contents that a crafted text may try to reach.
inline constexpr const char* kFixture =
    "delete from t_message; delete from t_session; delete from t_sync; delete from sqlite_sequence;"
    "insert into t_message(id,session_id,session_type,object_name,content,sender,direction,"
    "read_status,sent_time,client_uid,server_uid) values"
    "(1,'room',2,'CV:TxtMsg','first','u01',1,0,100,1,'uid1'),"
    "(2,'room',2,'CV:ImgMsg','second','me',0,1,200,2,'uid2'),"
    "(3,'secret',1,'CV:TxtMsg','third','u02',1,0,300,3,'uid3');"
    "insert into t_session(session_id,session_type,title,draft,session_time,unread_count,latest_id)"
    " values('room',2,'Room','unsent',200,1,2),('secret',1,'Secret','',300,1,3);"
    "insert into t_sync values('me',10,20)";

template <typename... Values>
std::string joined(const Values&... values) {
  std::ostringstream out;
  ((out << values << "|"), ...);
  return out.str();
}

inline Rows contents(const std::vector<Corvan::MessageResponse>& messages) {
  Rows result;
  result.reserve(messages.size());
  for (const Corvan::MessageResponse& m : messages) result.push_back(m.content_);
  return result;
}

// The store with the rows of kFixture.
class CraftedText : public StoreTest {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }
  void SetUp() override {
    StoreTest::SetUp();
    plant(kFixture);
  }

  // The history of a conversation, newest first.
  std::vector<Corvan::MessageResponse> history(const std::string& id,
                                               const std::string& kind = "") {
    std::vector<Corvan::MessageResponse> page;
    store().get_history_message_by_time(id, Corvan::CV_GROUP, kind, 0, 20, page, true);
    return page;
  }
};

}  // namespace corvan_test

#endif  // TESTS_DB_CRAFTED_TEXT_H_
