// Texts that a peer or a careless caller could choose: what they can do and what they cannot.
//
// A bound text is stored, compared and returned byte for byte, up to its first zero byte. SQL text
// becomes part of the statement: it can widen what the statement reads or deletes, and nothing
// else. A text longer than SQLite's limit is not bound at all: the statement runs with NULL
// instead.

#include <sqlite3.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using namespace std::string_literals;

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

using Uids = std::vector<std::string>;

// Every column of every table, with types and texts as hexadecimal digits, and the schema.
const char* const kEverything =
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
const char* const kFixture =
    "delete from t_message; delete from t_session; delete from t_sync; delete from sqlite_sequence;"
    "insert into t_message(id,session_id,session_type,object_name,content,sender,direction,"
    "read_status,sent_time,client_uid,server_uid) values"
    "(1,'room',2,'CV:TxtMsg','first','u01',1,0,100,1,'uid1'),"
    "(2,'room',2,'CV:ImgMsg','second','me',0,1,200,2,'uid2'),"
    "(3,'secret',1,'CV:TxtMsg','third','u02',1,0,300,3,'uid3');"
    "insert into t_session(session_id,session_type,title,draft,session_time,unread_count,latest_id)"
    " values('room',2,'Room','unsent',200,1,2),('secret',1,'Secret','',300,1,3);"
    "insert into t_sync values('me',10,20)";

std::string hex(const std::string& text) {
  static const char* const digits = "0123456789ABCDEF";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += digits[byte / 16];
    result += digits[byte % 16];
  }
  return result;
}

std::string until_zero(const std::string& text) {
  return text.c_str();
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

template <typename... Values>
std::string joined(const Values&... values) {
  std::ostringstream out;
  ((out << values << "|"), ...);
  return out.str();
}

std::string lines(const Rows& rows) {
  std::string text;
  for (const std::string& row : rows) text += row + "\n";
  return text;
}

// The history pager returns the conversation's id as the caller passed it.
std::string fields(const MessageResponse& m) {
  return joined(m.msg_id_, until_zero(m.session_id_), m.session_type_, m.object_name_, m.content_,
                m.sender_, m.server_uid_, m.sent_time_, m.sent_status_, m.read_status_);
}
std::string fields(const Session& s) {
  return joined(s.session_id_, s.session_type_, s.title_, s.draft_, s.content_, s.object_name_,
                s.sender_, s.server_uid_, s.session_time_, s.latest_id_);
}
std::string fields(const SessionInfo& s) {
  return joined(until_zero(s.session_id_), s.title_, s.draft_, s.unread_count_, s.session_time,
                fields(s.message_));
}
template <typename Record>
std::string fields(const std::vector<Record>& records) {
  std::string text;
  for (const Record& each : records) text += fields(each) + "\n";
  return text;
}

Uids contents(const std::vector<MessageResponse>& messages) {
  Uids result;
  result.reserve(messages.size());
  for (const MessageResponse& m : messages) result.push_back(m.content_);
  return result;
}

// ---- Texts that are bound -----------------------------------------------------------------------

// A plain text: hostile texts must be treated in the same way.
const char* const kPlain = "plain text of the test";

const std::vector<std::string>& hostile_texts() {
  static const std::vector<std::string> texts{
      // Quotes, followed by statements.
      "'", "''", "\"", "`", "[", "]", "')", "x'); drop table t_message;--",
      "x'; delete from t_session; --", "\"; drop table t_session; --", "') or ('1'='1",
      "x' union select content from t_message--", "1 or 1=1", "';commit;--",
      // The beginnings of patterns, literals, comments and parameters.
      "%", "_", "%_%", "*", "\\", "\\'", "a\\", "\\x00", "--", "-- '", "/*", "*/", "/* ' */", "?",
      "?1", ":a", "@a", "$a", ";", "%s%n%d", ";;;P-more-C;;;",
      // Texts that look like values of another type.
      "NULL", "null", "x'41'", "123", "-1", "007", "1e5", "0x10", "9223372036854775808", "1.50",
      // Blanks and control characters.
      " ", " leading", "trailing ", "\t\r\n", "two\nlines", "\x01\x02\x1b[31m\x7f", "\b\b\b",
      // Invalid UTF-8: a stray byte, overlong forms of "/" and zero, a lone surrogate, a code point
      // that is too large, a truncated sequence. Byte order marks, a non-character, right-to-left
      // text, letters beyond the first plane.
      "\xff", "a\x80z", "\xc0\xaf", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82",
      "\xf8\x88\x80\x80\x80", "\xef\xbb\xbftext", "\xff\xfe", "\xef\xbf\xbf", "\xe2\x80\xaeoffline",
      "\xf0\x9f\x98\x80",
      // Bytes after a zero byte are not stored.
      "before\0behind"s, "x'\0'; drop table t_message;--"s,
      // A long text.
      std::string(std::size_t{1} << 20, '\'')};
  return texts;
}

class HostileText : public StoreTest {
 protected:
  using Run = std::function<std::string(const std::string& text)>;

  static void SetUpTestSuite() { prefer_memory(); }
  void SetUp() override {
    StoreTest::SetUp();
    plant(kFixture);
  }

  // Runs an operation with each text from the same state, and expects the same result, log lines
  // and rows as for a plain text.
  void check(const std::string& name, const Run& run) {
    const std::string plain = outcome(run, kPlain);
    const std::string plain_rows = lines(rows(kEverything));
    for (const std::string& text : hostile_texts()) {
      const std::string stored = until_zero(text);
      const std::string label = name + " with " + text.substr(0, 40);
      const std::string result = outcome(run, text);
      EXPECT_TRUE(result == replaced(plain, kPlain, stored)) << label << ": " << result;
      const std::string rows_after = lines(rows(kEverything));
      EXPECT_TRUE(rows_after == replaced(plain_rows, hex(kPlain), hex(stored))) << label;
    }
  }

  // The same for an operation on one conversation, which is missing or has received and own
  // messages.
  void check_conversation(const std::string& name, const Run& run) {
    check(name + " of a missing conversation", run);
    check(name, [&](const std::string& id) {
      save(NewMessage().in(id, CV_GROUP).named("seed").client(41).at(2000));
      save(NewMessage().in(id, CV_GROUP).own(42).at(2100));
      return run(id);
    });
  }

  std::string outcome(const Run& run, const std::string& text) {
    plant(kFixture);
    std::string result = run(text);
    result += lines(log.take());
    return result;
  }

  // The history of a conversation, newest first.
  std::vector<MessageResponse> history(const std::string& id, const std::string& kind = "") {
    std::vector<MessageResponse> page;
    store().get_history_message_by_time(id, CV_GROUP, kind, 0, 20, page, true);
    return page;
  }

  MessageResponse message(int64_t id) {
    MessageResponse m;
    m.msg_id_ = id;
    store().get_message_by_id(m);
    return m;
  }

  std::string batch(const std::function<void(MessageResponse&)>& change) {
    std::vector<std::unique_ptr<MessageResponse>> records;
    for (int i = 0; i < 2; ++i) {
      records.push_back(std::make_unique<MessageResponse>());
      MessageResponse& m = *records.back();
      m.session_id_ = "batch";
      m.session_type_ = CV_GROUP;
      m.content_ = "content";
      m.sent_time_ = 500 + i;
      m.is_store_ = true;
      m.msg_id_ = -1;
    }
    change(*records[0]);
    const bool done = store().save_message(records);
    return joined(done, fields(message(records[0]->msg_id_)), fields(message(records[1]->msg_id_)));
  }

  static UpdateValue update_value(const std::string& id, const std::string& sender) {
    UpdateValue value;
    value.session_id_ = id;
    value.session_type_ = CV_GROUP;
    value.sender_ = sender;
    value.client_uid_ = 41;
    return value;
  }
};

TEST_F(HostileText, InTheUsersIdAndUnusedParameters) {
  check("user", [this](const std::string& user) {
    store().close_db();
    bool done = open(user);
    done = store().set_sync_time(7, true) && done;
    int64_t received = 0;
    int64_t sent = 0;
    done = store().get_sync_time(&received, &sent) && done;
    const NewMessage own = NewMessage().own(9).from(user);
    const int64_t first = save(own);
    const int64_t completed = save(NewMessage(own).named("given"));
    store().close_db();
    done = open() && done;
    return joined(done, received, sent, first, completed);
  });
  check("key and password", [this](const std::string& text) {
    const bool opened = store().init_open_db(cvrtc::Pathname(folder.path()), text, "me");
    return joined(opened, store().is_db_unlocked(text));
  });
}

TEST_F(HostileText, InTheSingleSave) {
  const auto saved = [this](const NewMessage& m) {
    const int64_t id = save(m);
    return joined(id, fields(message(id)), save(m), fields(history(m.session_id)));
  };
  check("session_id",
        [&](const std::string& text) { return saved(NewMessage().in(text, CV_GROUP).client(5)); });
  check("object_name",
        [&](const std::string& text) { return saved(NewMessage().client(5).kind(text)); });
  check("sender",
        [&](const std::string& text) { return saved(NewMessage().client(5).from(text)); });
  check("sender of an own one",
        [&](const std::string& text) { return saved(NewMessage().own(5).from(text)); });
  check("content",
        [&](const std::string& text) { return saved(NewMessage().client(5).text(text)); });
  check("server_uid", [&](const std::string& text) { return saved(NewMessage().named(text)); });
  check("server_uid of a completion", [&](const std::string& text) {
    const int64_t id = save(NewMessage().own(5));
    return joined(id, save(NewMessage().own(5).named(text)), fields(message(id)));
  });
}

TEST_F(HostileText, InTheBatchSave) {
  check("session_id", [this](const std::string& text) {
    return batch([&](MessageResponse& m) { m.session_id_ = text; });
  });
  check("object_name", [this](const std::string& text) {
    return batch([&](MessageResponse& m) { m.object_name_ = text; });
  });
  check("sender", [this](const std::string& text) {
    return batch([&](MessageResponse& m) { m.sender_ = text; });
  });
  check("content", [this](const std::string& text) {
    return batch([&](MessageResponse& m) { m.content_ = text; });
  });
  check("server_uid", [this](const std::string& text) {
    return batch([&](MessageResponse& m) { m.server_uid_ = text; });
  });
}

TEST_F(HostileText, InDuplicateTestsAndCompletions) {
  check_conversation("is_message_exist after a time", [this](const std::string& text) {
    return joined(store().is_message_exist(text, CV_GROUP, int64_t{0}));
  });
  check_conversation("is_message_exist by client key", [this](const std::string& text) {
    int64_t id = 0;
    std::string uid;
    const bool found = store().is_message_exist(41, "u01", text, CV_GROUP, id, uid);
    std::vector<UpdateValue> values{update_value(text, "u01")};
    return joined(found, id, uid, store().is_message_exist(values), values[0].msg_id_);
  });
  check("is_message_exist by sender", [this](const std::string& text) {
    save(NewMessage().client(41).from(text));
    int64_t id = 0;
    std::string uid;
    const bool found = store().is_message_exist(41, text, "room", CV_GROUP, id, uid);
    std::vector<UpdateValue> values{update_value("room", text)};
    return joined(found, id, uid, store().is_message_exist(values), values[0].msg_id_);
  });
  check("is_message_exist by server uid", [this](const std::string& text) {
    const bool before = store().is_message_exist(text);
    save(NewMessage().named(text));
    return joined(before, store().is_message_exist(text));
  });
  check("set_send_time_for_dup_msg", [this](const std::string& text) {
    store().set_send_time_for_dup_msg(2, 900, text);
    UpdateValue value;
    value.msg_id_ = 3;
    value.server_uid_new_ = text;
    value.sent_time_ = 901;
    store().set_send_time_for_dup_msg({value});
    return joined(fields(message(2)), fields(message(3)));
  });
}

TEST_F(HostileText, InMessageState) {
  check("set_send_time", [this](const std::string& text) {
    store().set_send_time(2, 900, text, "room", CV_GROUP, 0);
    return fields(message(2));
  });
  check_conversation("set_send_time", [this](const std::string& text) {
    store().set_send_time(2, 9000, "u", text, CV_GROUP, 0);
    return fields(message(2));
  });
  check("set_sendtime", [this](const std::string& text) {
    return joined(store().set_sendtime(2, 900, text, 0), fields(message(2)));
  });
  check_conversation("update_message_receipt_status", [this](const std::string& text) {
    return joined(store().update_message_receipt_status(text, CV_GROUP, 5000));
  });
  check("set_message_content", [this](const std::string& text) {
    return joined(store().set_message_content(2, text, ""), fields(message(2)));
  });
  check("set_message_content's kind", [this](const std::string& text) {
    return joined(store().set_message_content(2, "c", text), fields(message(2)));
  });
  check("common_message_text", [this](const std::string& text) {
    const char* const sql = "update t_message set content=? where id=?";
    return joined(store().common_message_text(2, text, sql), fields(message(2)));
  });
  check_conversation("get_client_uid", [this](const std::string& text) {
    int64_t uid = 0;
    store().get_client_uid(text, CV_GROUP, uid);
    return joined(uid);
  });
}

TEST_F(HostileText, InDeletions) {
  check_conversation("delete_message by server uids", [this](const std::string& text) {
    store().delete_message(text, CV_GROUP, Uids{"seed"});
    return ""s;
  });
  check_conversation("clear_message", [this](const std::string& text) {
    return joined(store().clear_message(text, CV_GROUP, false));
  });
  check_conversation("delete_message", [this](const std::string& text) {
    return joined(store().delete_message(text, CV_GROUP));
  });
}

TEST_F(HostileText, InMessageQueries) {
  check("get_message_by_uid", [this](const std::string& text) {
    MessageResponse m;
    m.server_uid_ = text;
    const bool before = store().get_message_by_uid(m);
    save(NewMessage().named(text));
    return joined(before, store().get_message_by_uid(m), m.msg_id_, m.content_);
  });
  check_conversation("history", [this](const std::string& text) {
    std::vector<MessageResponse> page;
    const bool found =
        store().get_history_message_by_object_name(text, CV_GROUP, {}, 1, 9, page, false);
    return joined(found, fields(page), fields(history(text)));
  });
  check_conversation("get_mention_message", [this](const std::string& text) {
    store().execute_none_query("update t_message set is_mention=1,direction=2 where id>3");
    std::vector<MessageResponse> page;
    return joined(store().get_mention_message(text, CV_GROUP, page), fields(page));
  });
  check_conversation("get_matched_message", [this](const std::string& text) {
    std::vector<MessageResponse> page;
    return joined(store().get_matched_message(text, CV_GROUP, 0, 5, 5, page), fields(page));
  });
  check_conversation("newest", [this](const std::string& text) {
    int64_t time = 0;
    int64_t same = 0;
    store().get_max_time(time, CV_GROUP, text, 2);
    store().get_maxtime(same, CV_GROUP, text, 2);
    return joined(time, same, store().get_max_message_id(CV_GROUP, text, 2));
  });
  check_conversation("get_message_by_id", [this](const std::string&) {
    std::string id;
    int32_t type = 0;
    bool unread = false;
    bool mention = false;
    int64_t time = 0;
    return joined(store().get_message_by_id(4, id, type, unread, mention, time), id, type, time);
  });
}

TEST_F(HostileText, InConversationSettings) {
  check_conversation("set_is_top", [this](const std::string& text) {
    return joined(store().set_is_top(text, CV_GROUP, true, true));
  });
  check_conversation("set_message_draft", [this](const std::string& text) {
    std::string draft;
    return joined(store().set_message_draft(text, CV_GROUP, "draft"),
                  store().get_message_draft(text, CV_GROUP, draft), draft);
  });
  check("the draft", [this](const std::string& text) {
    return joined(store().set_message_draft("room", CV_GROUP, text));
  });
  check("the draft of a missing conversation", [this](const std::string& text) {
    return joined(store().set_message_draft("missing", CV_GROUP, text));
  });
  check_conversation("set_silence", [this](const std::string& text) {
    int32_t status = 0;
    return joined(store().set_silence(text, CV_GROUP, 3),
                  store().get_silence(text, CV_GROUP, status), status);
  });
  check_conversation("remove_session", [this](const std::string& text) {
    return joined(store().remove_session(text, CV_GROUP));
  });
  check_conversation("delete_session", [this](const std::string& text) {
    return joined(store().delete_session(text, CV_GROUP));
  });
  check_conversation("common_session_operation", [this](const std::string& text) {
    return joined(store().common_session_operation(
        text, CV_GROUP, "update t_session set title='t' where session_id=? and session_type=?"));
  });
}

TEST_F(HostileText, InConversationRows) {
  check_conversation("add_session", [this](const std::string& text) {
    return joined(store().is_session_exist(text, CV_GROUP),
                  store().add_session(text, CV_GROUP, 5, 6, "name", 7, 8),
                  store().is_session_exist(text, CV_GROUP));
  });
  check("add_session's name", [this](const std::string& text) {
    return joined(store().add_session("new", CV_GROUP, 5, 6, text, 7, 8));
  });
  check_conversation("set_session_time", [this](const std::string& text) {
    store().set_session_time(text, CV_GROUP, 9000, "CV:TxtMsg", 1, 1, 1, 0);
    return ""s;
  });
  check("set_session_time's kind", [this](const std::string& text) {
    store().set_session_time("room", CV_GROUP, 1, text, 1, 1, 1, 0);
    return ""s;
  });
  check_conversation("set_sessiontime", [this](const std::string& text) {
    store().set_sessiontime(9000, 1, text, CV_GROUP);
    return ""s;
  });
  check_conversation("get_sessiontime", [this](const std::string& text) {
    int64_t time = 0;
    int64_t id = 0;
    int32_t unread = 0;
    int32_t mention = 0;
    store().get_sessiontime(text, CV_GROUP, time, id, unread, mention);
    return joined(time, id, unread, mention);
  });
  check_conversation("set_message_latestid", [this](const std::string& text) {
    int64_t id = 0;
    int64_t time = 0;
    return joined(store().get_message_latestid(text, CV_GROUP, id, time), id, time,
                  store().set_message_latestid(text, CV_GROUP, 1, 9000));
  });
}

TEST_F(HostileText, InTheConversationList) {
  check_conversation("get_session", [this](const std::string& text) {
    SessionInfo info;
    info.session_id_ = text;
    info.session_type_ = CV_GROUP;
    Session row;
    const bool found = store().get_session(info);
    return joined(found, fields(info), store().load_session(row, text, CV_GROUP), fields(row));
  });
  check("what the list shows", [this](const std::string& text) {
    const NewMessage m =
        NewMessage().in(text, CV_GROUP).kind(text).from(text).text(text).named(text);
    save(m);
    store().set_message_draft(text, CV_GROUP, text);
    store().add_session(text, CV_CHATROOM, 5, 4, text, 0, 0);
    std::vector<SessionInfo> list;
    const bool found = store().get_session_list_by_page({CV_GROUP, CV_CHATROOM}, 0, 9, list);
    return joined(found, fields(list));
  });
  check("what the loaders give", [this](const std::string& text) {
    save(NewMessage().in(text, CV_GROUP).kind(text).from(text).text(text).named(text));
    std::vector<Session> rows;
    std::string kinds = "2";
    bool done = store().load_session(rows, kinds, 0, 9, false);
    done = store().load_message(rows, "4") && done;
    done = store().load_distinct_session_with_unread(rows, "4") && done;
    done = store().load_session_with_latestid(rows, "4") && done;
    return joined(done, fields(rows));
  });
}

TEST_F(HostileText, InReadStateAndCounters) {
  check_conversation("update_message_status", [this](const std::string& text) {
    return joined(store().update_message_status(text, CV_GROUP));
  });
  check_conversation("sync_unread", [this](const std::string& text) {
    int32_t unread = 0;
    int32_t mention = 0;
    return joined(store().get_unred_mention(text, CV_GROUP, 0, unread, mention), unread, mention,
                  store().sync_unread(text, CV_GROUP, 5));
  });
  check_conversation("clear_unread", [this](const std::string& text) {
    return joined(store().clear_unread(text, CV_GROUP));
  });
  check_conversation("the counts", [this](const std::string& text) {
    int32_t unread = 0;
    int32_t all = 0;
    return joined(store().get_unread_count(text, CV_GROUP, unread), unread,
                  store().get_message_count(text, CV_GROUP, all), all,
                  store().set_unread_by_value(text, CV_GROUP, 1, 1));
  });
  check_conversation("the times", [this](const std::string& text) {
    store().set_unread_readtime(text, CV_GROUP, 5);
    store().set_receipttime(text, CV_GROUP, 6);
    int64_t read = 0;
    int64_t receipt = 0;
    int64_t same = 0;
    store().get_readtime(text, CV_GROUP, read);
    store().get_receipt_time(text, CV_GROUP, receipt);
    store().get_receipttime(text, CV_GROUP, same);
    return joined(read, receipt, same);
  });
}

// A folder's name is not used as a statement, a pattern or a URI.
TEST_F(HostileText, InTheFoldersName) {
  for (const char* name : {"it's", "\"quoted\"", "a?mode=memory", "a#b", "a%20b", "x'; drop--",
                           "tab\there", "\xff\xfe", ".db", "-wal", "%s%n", "*"}) {
    const std::string path = folder.file(name) + "/";
    std::filesystem::create_directory(path);
    store().close_db();
    EXPECT_TRUE(store().init_open_db(cvrtc::Pathname(path), "", "me")) << name;
    EXPECT_TRUE(store().set_sync_time(7, true)) << name;
    EXPECT_EQ(corvan_test::rows(path + "corvan", "select receive_time from t_sync"), Rows{"7"})
        << name;
  }
}

// ---- A zero byte at the front -------------------------------------------------------------------

// Such a text is not empty for the store, but empty for SQLite.
const std::string kZeroFirst = "\0behind"s;

TEST_F(HostileText, UidWithALeadingZeroByteIsRefusedIfAnyMessageHasNoUid) {
  save(NewMessage());
  EXPECT_EQ(save(NewMessage().named(kZeroFirst)), -1);
  EXPECT_TRUE(store().is_message_exist(kZeroFirst));
}

TEST_F(HostileText, KindWithALeadingZeroByteClearsTheStoredKind) {
  EXPECT_TRUE(store().set_message_content(1, "c", kZeroFirst));
  EXPECT_EQ(message(1).object_name_, "");
}

TEST_F(HostileText, ServerUidWithALeadingZeroByteClearsTheStoredUid) {
  EXPECT_EQ(store().set_sendtime(1, 0, kZeroFirst, 0), SQLITE_DONE);
  EXPECT_EQ(message(1).server_uid_, "");
}

TEST_F(HostileText, DraftWithALeadingZeroByteIsClearedAndMovesTheConversation) {
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, kZeroFirst));
  EXPECT_EQ(rows("select draft,session_time from t_session where session_type=2"),
            Rows{"|1000000"});
}

TEST_F(HostileText, HistoryReturnsTheCallersIdWithBytesAfterAZeroByte) {
  const std::string asked = "room\0behind"s;
  const std::vector<MessageResponse> page = history(asked);
  ASSERT_EQ(page.size(), 2U);
  EXPECT_EQ(page[0].session_id_, asked);
}

// A zero byte also ends a statement, before the quote that closes the literal around SQL text.
TEST_F(HostileText, ZeroByteEndsTheStatementItIsPastedInto) {
  EXPECT_EQ(history("room", "CV:TxtMsg')\0"s).size(), 1U);
  EXPECT_TRUE(history("room", "CV:TxtMsg\0"s).empty());
  EXPECT_EQ(log.take().size(), 1U);  // an unfinished literal
}

// ---- Texts that are pasted ----------------------------------------------------------------------

// Whatever the text, a reading statement only reads: no row changes.
class PastedText : public HostileText {
 protected:
  void SetUp() override {
    HostileText::SetUp();
    before_ = rows(kEverything);
  }

  void expect_unchanged(const std::string& label) {
    EXPECT_EQ(rows(kEverything), before_) << label;
    EXPECT_FALSE(in_transaction()) << label;
    EXPECT_EQ(open_statements(), 0) << label;
  }

  std::vector<MessageResponse> history_by_kind(const std::string& kind) {
    std::vector<MessageResponse> page;
    store().get_history_message_by_object_name("room", CV_GROUP, {kind}, 0, 20, page, true);
    return page;
  }

  Rows before_;
};

// The ends of the statements that contain SQL text, and what an attacker would put there.
const std::vector<std::string>& written_attempts() {
  static const std::vector<std::string> texts{
      "1);delete from t_message;--",
      "1');delete from t_message;--",
      "';delete from t_message;--",
      "1);drop table t_session;--",
      "1');drop table t_session;--",
      "1');pragma user_version=9;--",
      "1) returning (delete from t_message)--",
      "1') union delete from t_message--",
      "1') union select * from (delete from t_message returning id)--",
      "(with gone as (delete from t_message returning id) select id from gone)",
      "(insert into t_sync values('x',1,1) returning 1)",
      "(update t_session set title='x' returning 1)",
      "1');vacuum;--",
      "1');begin;--",
      "1');attach 'elsewhere' as elsewhere;--",
      "(select load_extension('libm.so'))",
      "(select writefile('elsewhere','x'))",
      "(select fts3_tokenizer('simple',x'0000000000000000'))",
  };
  return texts;
}

TEST_F(PastedText, ReadingStatementNeverWrites) {
  for (const std::string& text : written_attempts()) {
    std::vector<std::string> uids;
    store().is_message_exist(text, uids);
    history_by_kind(text);
    history("room", text);
    store().is_table_exist(text);
    std::vector<Session> list;
    std::string kinds = text;
    store().load_session(list, kinds, 0, 5, false);
    store().load_message(list, text);
    store().load_distinct_session_with_unread(list, text);
    store().load_session_with_latestid(list, text);
    expect_unchanged(text);
  }
  EXPECT_FALSE(file_exists(folder.file("elsewhere")));
}

TEST_F(PastedText, TextThatDoesNotParseChangesNothing) {
  for (const char* text : {"'", "')", "\"", "1,,2", "1)(", "x' y", "/*", "select"}) {
    std::vector<std::string> uids{"kept"};
    EXPECT_FALSE(store().is_message_exist(text, uids)) << text;
    EXPECT_EQ(uids, Uids{"kept"});
    std::vector<Session> list;
    std::string kinds = text;
    EXPECT_FALSE(store().load_session(list, kinds, 0, 5, false)) << text;
    EXPECT_FALSE(store().load_message(list, text)) << text;
    EXPECT_FALSE(store().load_distinct_session_with_unread(list, text)) << text;
    EXPECT_FALSE(store().load_session_with_latestid(list, text)) << text;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(log.take().size(), 5U) << text;
    expect_unchanged(text);
  }
}

TEST_F(PastedText, UidListCanMatchEveryMessage) {
  std::vector<std::string> uids;
  EXPECT_TRUE(store().is_message_exist("'x') or ('1'='1'", uids));
  EXPECT_EQ(uids, (Uids{"uid1", "uid2", "uid3"}));
  uids.clear();
  EXPECT_TRUE(store().is_message_exist("select server_uid from t_message where id=3", uids));
  EXPECT_EQ(uids, Uids{"uid3"});
}

TEST_F(PastedText, UidListCanReadOtherColumnsAndTables) {
  std::vector<std::string> uids;
  EXPECT_TRUE(store().is_message_exist(
      "'x') union all select content from t_message union all select user_id from t_sync--", uids));
  EXPECT_EQ(uids, (Uids{"first", "second", "third", "me"}));
  expect_unchanged("union");
}

TEST_F(PastedText, KindCanReadOtherKindsAndConversations) {
  EXPECT_EQ(contents(history_by_kind("CV:TxtMsg")), Uids{"first"});
  const std::vector<MessageResponse> page = history_by_kind("x') or ('1'='1");
  EXPECT_EQ(contents(page), (Uids{"third", "second", "first"}));
  for (const MessageResponse& m : page) {
    EXPECT_EQ(m.session_id_, "room");  // the third is in another conversation
    EXPECT_EQ(m.session_type_, CV_GROUP);
  }
  EXPECT_EQ(contents(history("room", "x') or ('1'='1")), (Uids{"third", "second", "first"}));
}

TEST_F(PastedText, KindCanReadOtherTables) {
  EXPECT_EQ(contents(history_by_kind("x') union select 1,user_id,0,0,receive_time,'','','','' "
                                     "from t_sync--")),
            Uids{"me"});
  expect_unchanged("union");
}

TEST_F(PastedText, TableNameCanQueryAnything) {
  EXPECT_FALSE(store().is_table_exist("t_missing"));
  EXPECT_TRUE(store().is_table_exist("' or '1'='1"));
  const std::string first = "' or exists(select 1 from t_message where content like 'thi%')--";
  EXPECT_TRUE(store().is_table_exist(first));  // in this way, each row can be read letter by letter
  const std::string other = "' or exists(select 1 from t_message where content like 'tho%')--";
  EXPECT_FALSE(store().is_table_exist(other));
}

TEST_F(PastedText, UidCanDeleteEverything) {
  store().delete_message("room", CV_GROUP, Uids{"x') or 1=1 --"});
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_EQ(rows("select latest_id from t_session where session_type=2"), Rows{"-1"});
  EXPECT_EQ(rows("select latest_id from t_session where session_type=1"), Rows{"3"});
}

TEST_F(PastedText, UidCanDeleteWhatASubselectFinds) {
  store().delete_message("room", CV_GROUP,
                         Uids{"x') or id in (select latest_id from t_session where title='Secret"});
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));
}

TEST_F(PastedText, UidCannotRunASecondStatement) {
  store().delete_message("room", CV_GROUP, Uids{"uid1'); delete from t_session; --"});
  EXPECT_EQ(rows("select id from t_message order by id"),
            (Rows{"2", "3"}));  // the first statement ran
  EXPECT_EQ(rows("select session_id from t_session order by 1"), (Rows{"room", "secret"}));
}

TEST_F(PastedText, UidThatDoesNotParseDeletesNothing) {
  for (const char* uid : {"'", "uid1') where '1'='1", "uid1') returning", "uid1')) --"}) {
    store().delete_message("room", CV_GROUP, Uids{"uid2", uid});
    EXPECT_EQ(log.take().size(), 1U) << uid;
    expect_unchanged(uid);
  }
}

TEST_F(PastedText, KindsCanListEveryConversation) {
  std::vector<Session> list;
  std::string kinds = "0) or (1";
  EXPECT_TRUE(store().load_session(list, kinds, 0, 5, false));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].session_id_, "secret");
  EXPECT_EQ(list[1].session_id_, "room");
}

TEST_F(PastedText, IdsCanLoadEveryMessage) {
  for (const char* ids : {"0) or (1", "select id from t_message"}) {
    std::vector<Session> list;
    EXPECT_TRUE(store().load_message(list, ids));
    EXPECT_EQ(list.size(), 3U) << ids;
    list.clear();
    EXPECT_TRUE(store().load_distinct_session_with_unread(list, ids));
    EXPECT_EQ(list.size(), 2U) << ids;
  }
  std::vector<Session> list;
  EXPECT_TRUE(store().load_session_with_latestid(list, "0) or (1"));
  EXPECT_EQ(list.size(), 2U);
  list.clear();
  EXPECT_TRUE(store().load_message(
      list, "0) union select user_id,2,'content','kind','sender',0,0,0,0,'uid' from t_sync--"));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].session_id_, "me");
}

// ---- Texts that are whole statements ------------------------------------------------------------

TEST_F(PastedText, AnyWholeStatementRuns) {
  EXPECT_TRUE(store().common_message_int(1, 2, "delete from t_message"));
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_TRUE(store().common_message_text(1, "x", "delete from t_sync"));
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{});
  EXPECT_TRUE(store().common_session_operation("room", 2, "delete from t_session"));
  EXPECT_EQ(rows("select session_id from t_session"), Rows{});
  EXPECT_EQ(store().execute_none_query("drop table t_sync"), SQLITE_DONE);
  EXPECT_EQ(store().get_pragma("insert into t_version values('2') returning 7"), 7);
  EXPECT_EQ(rows("select count(*) from t_version"), Rows{"2"});
}

TEST_F(PastedText, OnlyTheFirstWholeStatementRuns) {
  const std::string two = "update t_message set read_status=read_status; delete from t_message";
  EXPECT_TRUE(store().common_message_int(1, 2, two));
  EXPECT_TRUE(store().common_message_text(1, "x", two));
  EXPECT_TRUE(store().common_session_operation("room", 2, two));
  EXPECT_EQ(store().execute_none_query(two), SQLITE_DONE);
  EXPECT_EQ(store().get_pragma("pragma user_version; delete from t_message"), 1);
  expect_unchanged(two);
}

TEST_F(PastedText, WholeStatementsThatReturnRowsFail) {
  const std::string reading = "select 1 from t_message where id=? or id<>?";
  EXPECT_FALSE(store().common_message_int(1, 2, reading));
  EXPECT_FALSE(store().common_message_text(1, "x", reading));
  EXPECT_FALSE(store().common_session_operation("room", 2, reading));
}

TEST_F(PastedText, ArgumentsWithoutAParameterAreIgnored) {
  EXPECT_TRUE(store().common_message_int(1, 2, "update t_message set sent_status=?"));
  EXPECT_EQ(rows("select distinct sent_status from t_message"), Rows{"2"});
  EXPECT_EQ(log.take(), Rows{});
}

using PastedTextDeath = PastedText;

TEST_F(PastedTextDeath, TextWithoutAStatementAborts) {
  const char* const bind = "Check failed: stmt != nullptr\n# bind stmt nullptr\n";
  const char* const step = "Check failed: stmt != nullptr\n# step stmt nullptr\n";
  for (const char* text : {"", "--", " ;", "-- delete from t_message", "/* nothing */", " \n"}) {
    EXPECT_DEATH(store().execute_none_query(text), step) << text;
    EXPECT_DEATH(store().get_pragma(text), step) << text;
    EXPECT_DEATH(store().common_message_int(1, 2, text), bind) << text;
    EXPECT_DEATH(store().common_message_text(1, "x", text), bind) << text;
    EXPECT_DEATH(store().common_session_operation("room", 2, text), bind) << text;
  }
}

TEST_F(PastedText, TextWithoutAStatementIsPreparedToNull) {
  for (const char* text : {"", "--", " ;", "/* nothing */", "\xef\xbb\xbf"}) {
    int32_t rc = 7;
    EXPECT_EQ(store().prepare_sql(text, rc), nullptr) << text;
    EXPECT_EQ(rc, SQLITE_OK) << text;
  }
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Texts of an older store's schema -----------------------------------------------------------

class OlderStore : public PastedText {
 protected:
  void attach() {
    ASSERT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_DONE);
  }
  void copy() {
    attach();
    store().createdb_copydata();
    ASSERT_EQ(store().execute_none_query("detach odb"), SQLITE_DONE);
  }

  const std::string old_ = folder.file("old");
};

TEST_F(OlderStore, NamesWithQuotesAreCopied) {
  corvan_test::plant(old_, "create table \"it's; drop table t_sync;--\"(a default 'x''y')");
  copy();
  EXPECT_EQ(rows("select name from sqlite_master where name like 'it%'"),
            Rows{"it's; drop table t_sync;--"});
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{"me"});
  log.take();  // the tables that this older store does not have
}

// Triggers are skipped by their type; SQLite rejects a file that calls a trigger a table.
TEST_F(OlderStore, AttachingRefusesATriggerDisguisedAsATable) {
  corvan_test::plant(old_,
                     "create table t_sync(user_id text primary key,a integer,b integer);"
                     "create trigger gift after insert on t_sync begin delete from t_message; end;"
                     "pragma writable_schema=on;"
                     "update sqlite_master set type='table' where name='gift'");
  EXPECT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_CORRUPT);
  EXPECT_FALSE(log.take().empty());
  expect_unchanged("attach");
}

// Indexes are copied as well. With one that this schema does not have, copied rows replace others,
// and later saves fail.
TEST_F(OlderStore, CopiedUniqueIndexRefusesMessages) {
  corvan_test::plant(old_,
                     "create table t_message(id integer primary key,a,b,c,d,e,f,g,h,i,j,"
                     "client_uid integer,k);"
                     "create unique index gift on t_message(client_uid);"
                     "insert into t_message values(9,'','','','','','','','','','',1,'')");
  copy();
  EXPECT_EQ(rows("select id from t_message order by id"), (Rows{"2", "3", "9"}));
  EXPECT_EQ(save(NewMessage().from("u07").client(3)), -1);
  log.take();
}

TEST_F(OlderStore, SecondStatementOfASchemaTextDoesNotRun) {
  corvan_test::plant(
      old_,
      "create table t_gift(a);"
      "pragma writable_schema=on;"
      "update sqlite_master set sql='create table t_gift(a); delete from t_message'");
  copy();
  EXPECT_EQ(rows("select name from sqlite_master where name='t_gift'"), Rows{"t_gift"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"3"});
  log.take();
}

TEST_F(OlderStore, AttachingRefusesASchemaTextThatSqliteCannotRead) {
  corvan_test::plant(old_,
                     "create table t_gift(a);"
                     "pragma writable_schema=on;"
                     "update sqlite_master set sql='delete from t_message'");
  EXPECT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_CORRUPT);
  EXPECT_FALSE(log.take().empty());
  expect_unchanged("attach");
  EXPECT_TRUE(file_exists(file()));
}

// If SQLite finds damage in either file while it prepares a statement, the store's own file is
// deleted.
TEST_F(OlderStore, DamageOfTheAttachedSchemaDeletesTheStoresOwnFile) {
  corvan_test::plant(old_, "create table t_gift(a)");
  attach();
  corvan_test::plant(old_,
                     "pragma writable_schema=on; update sqlite_master set sql='nothing';"
                     "pragma schema_version=99");
  store().createdb_copydata();
  EXPECT_FALSE(file_exists(file()));
  EXPECT_TRUE(file_exists(old_));
  EXPECT_EQ(store().get_pragma("select 1"), -1);
  log.take();
}

// ---- Texts for LIKE -----------------------------------------------------------------------------

TEST_F(HostileText, EscapedKeywordMatchesItselfLiterally) {
  for (const char* keyword : {"it's", "50%", "a_b", "%_%", "';--", "''", "\"", "\xff"}) {
    const std::string label = keyword;
    bool escaped = false;
    const std::string pattern = Corvan::CvDbSingleton::escape_char(keyword, escaped);
    const auto matches = [&](const std::string& content) {
      plant("delete from t_message");
      save(NewMessage().text(content));
      return rows("select 1 from t_message where content like '%" + pattern + "%' escape '\\'")
                 .size() == 1;
    };
    EXPECT_TRUE(matches("x" + label + "y")) << label;
    EXPECT_FALSE(matches("other")) << label;
  }
}

// A backslash is not escaped, so it escapes the character after it.
TEST_F(HostileText, KeywordWithABackslashDoesNotMatchLiterally) {
  bool escaped = false;
  const std::string pattern = Corvan::CvDbSingleton::escape_char("\\%", escaped);
  const std::string sql = "select content from t_message where content like '" + pattern +
                          "' escape '\\' order by content";
  plant("delete from t_message");
  save(NewMessage().text("\\%"));
  save(NewMessage().text("\\anything"));
  EXPECT_EQ(rows(sql), (Rows{"\\%", "\\anything"}));
}

// ---- Texts over SQLite's limit ------------------------------------------------------------------

constexpr int kLimit = 1000;

// The store's connection accepts no text longer than kLimit.
class LengthLimit : public HostileText {
 protected:
  void SetUp() override {
    HostileText::SetUp();
    limit(SQLITE_LIMIT_LENGTH, kLimit);
  }

  void limit(int which, int value) {
    int32_t rc = 0;
    sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
    sqlite3_limit(sqlite3_db_handle(stmt), which, value);
    store().finalize(stmt);
  }

  // The rows of a table that the fixture does not have.
  Rows added(const std::string& columns, const std::string& from) const {
    const std::string known = from == "t_message" ? "id>3" : from == "t_session" ? "rowid>2" : "1";
    return rows("select " + columns + " from " + from + " where " + known + " order by rowid");
  }

  const std::string within_ = std::string(kLimit, 'x');
  const std::string over_ = std::string(kLimit + 1, 'x');
  const std::string half_ = std::string(kLimit / 2, 'x');
};

const Rows kTooBig = run_failed(SQLITE_TOOBIG, "string or blob too big");

TEST_F(LengthLimit, TextUpToTheLimitIsBoundAndALongerOneIsNot) {
  int32_t rc = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select length(?)", rc);
  EXPECT_EQ(Corvan::CvDbSingleton::bind(stmt, 1, within_), SQLITE_OK);
  EXPECT_EQ(Corvan::CvDbSingleton::bind(stmt, 1, over_), SQLITE_TOOBIG);
  EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_type(stmt, 0), SQLITE_NULL);  // and the value bound before is gone too
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

// From here on: silent failures. Each test ends with an empty log.
class SilentLoss : public LengthLimit {
 protected:
  void TearDown() override {
    EXPECT_EQ(log.take(), Rows{});
    LengthLimit::TearDown();
  }
};

TEST_F(SilentLoss, ContentIsSavedAsNull) {
  EXPECT_EQ(save(NewMessage().text(over_)), 4);
  EXPECT_EQ(added("content", "t_message"), Rows{"NULL"});
  MessageResponse m;
  m.msg_id_ = 4;
  EXPECT_TRUE(store().get_message_by_id(m));
  EXPECT_EQ(m.content_, "");
  EXPECT_EQ(contents(history("room"))[1], "");
  SessionInfo info;
  info.session_id_ = "room";
  info.session_type_ = CV_GROUP;
  EXPECT_TRUE(store().get_session(info));
  EXPECT_EQ(info.message_.content_, "");
}

TEST_F(SilentLoss, KindAndSenderAreSavedAsNull) {
  EXPECT_EQ(save(NewMessage().kind(over_)), 4);
  EXPECT_EQ(save(NewMessage().from(over_)), 5);
  EXPECT_EQ(added("object_name,sender", "t_message"), (Rows{"NULL|u01", "CV:TxtMsg|NULL"}));
}

// Neither duplicate test finds the message.
TEST_F(SilentLoss, MessageSavedAgainIsStoredTwice) {
  EXPECT_EQ(save(NewMessage().named(over_)), 4);
  EXPECT_EQ(save(NewMessage().named(over_)), 5);
  EXPECT_EQ(save(NewMessage().client(8).from(over_)), 6);
  EXPECT_EQ(save(NewMessage().client(8).from(over_)), 7);
  EXPECT_EQ(added("server_uid,sender", "t_message"),
            (Rows{"NULL|u01", "NULL|u01", "|NULL", "|NULL"}));
  EXPECT_FALSE(store().is_message_exist(over_));
}

// Each save creates a conversation that only the list finds, not the operations on one
// conversation.
TEST_F(SilentLoss, MessageIsSavedWithoutAConversation) {
  EXPECT_EQ(save(NewMessage().in(over_, CV_GROUP).client(8)), 4);
  EXPECT_EQ(save(NewMessage().in(over_, CV_GROUP).client(8)), 5);
  EXPECT_EQ(added("session_id,client_uid", "t_message"), (Rows{"NULL|8", "NULL|8"}));
  EXPECT_EQ(added("session_id,session_type,unread_count", "t_session"),
            (Rows{"NULL|2|1", "NULL|2|1"}));
  EXPECT_FALSE(store().is_session_exist(over_, CV_GROUP));
  EXPECT_FALSE(store().is_session_exist("", CV_GROUP));
  EXPECT_TRUE(history(over_).empty());
  EXPECT_TRUE(store().delete_session(over_, CV_GROUP));
  EXPECT_TRUE(store().clear_message(over_, CV_GROUP, false));
  EXPECT_EQ(added("session_id", "t_message").size(), 2U);
  int32_t unread = 0;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, 4);
  std::vector<SessionInfo> list;
  EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 9, list));
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1].session_id_, "");
  EXPECT_EQ(list[1].message_.content_, "hello");
}

TEST_F(SilentLoss, BatchStoresNullNotTheTextOfThePreviousRecord) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (int i = 0; i < 7; ++i) {
    batch.push_back(std::make_unique<MessageResponse>());
    MessageResponse& m = *batch.back();
    m.session_id_ = m.object_name_ = m.sender_ = m.content_ = m.server_uid_ = "t";
    m.is_store_ = true;
    m.msg_id_ = -1;
  }
  batch[1]->session_id_ = over_;
  batch[2]->object_name_ = over_;
  batch[3]->sender_ = over_;
  batch[4]->content_ = over_;
  batch[5]->server_uid_ = over_;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(added("session_id,object_name,sender,content,server_uid", "t_message"),
            (Rows{"t|t|t|t|t", "NULL|t|t|t|t", "t|NULL|t|t|t", "t|t|NULL|t|t", "t|t|t|NULL|t",
                  "t|t|t|t|NULL", "t|t|t|t|t"}));
  EXPECT_EQ(batch[4]->msg_id_, 8);
}

TEST_F(SilentLoss, CompletedMessageLosesItsServerUid) {
  EXPECT_EQ(save(NewMessage().own(8)), 4);
  EXPECT_EQ(save(NewMessage().own(8).named(over_)), 4);
  EXPECT_EQ(added("server_uid", "t_message"), Rows{"NULL"});
  const std::string uids = "select server_uid from t_message where id<4 order by id";
  store().set_send_time_for_dup_msg(1, 900, over_);
  UpdateValue value;
  value.msg_id_ = 2;
  value.server_uid_new_ = over_;
  store().set_send_time_for_dup_msg({value});
  EXPECT_EQ(store().set_sendtime(3, 900, over_, 0), SQLITE_DONE);
  EXPECT_EQ(rows(uids), (Rows{"NULL", "NULL", "NULL"}));
  plant("update t_message set server_uid='u' where id=1");
  store().set_send_time(1, 900, over_, "room", CV_GROUP, 0);
  EXPECT_EQ(rows(uids)[0], "NULL");
}

TEST_F(SilentLoss, ReplacingContentAndKindErasesThem) {
  EXPECT_TRUE(store().set_message_content(1, over_, ""));
  EXPECT_TRUE(store().set_message_content(2, "c", over_));
  EXPECT_TRUE(store().common_message_text(3, over_, "update t_message set content=? where id=?"));
  EXPECT_EQ(rows("select content,object_name from t_message order by id"),
            (Rows{"NULL|CV:TxtMsg", "c|NULL", "NULL|CV:TxtMsg"}));
}

TEST_F(SilentLoss, DraftIsErasedAndMovesTheConversation) {
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, over_));
  EXPECT_EQ(rows("select draft,session_time from t_session where session_type=2"),
            Rows{"NULL|1000000"});
}

TEST_F(SilentLoss, ConversationIsCreatedWithoutItsNameOrId) {
  EXPECT_TRUE(store().add_session("new", CV_GROUP, 5, 6, over_, 0, 0));
  EXPECT_TRUE(store().add_session(over_, CV_GROUP, 5, 6, "name", 0, 0));
  EXPECT_TRUE(store().add_session(over_, CV_GROUP, 5, 6, "name", 0, 0));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, true, true));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, true, true));
  EXPECT_EQ(added("session_id,title,is_top", "t_session"),
            (Rows{"new|NULL|0", "NULL|name|0", "NULL|name|0", "NULL||1", "NULL||1"}));
}

TEST_F(SilentLoss, EachSyncTimeIsInsertedAsANewRow) {
  store().close_db();
  ASSERT_TRUE(open(over_));
  limit(SQLITE_LIMIT_LENGTH, kLimit);
  EXPECT_TRUE(store().set_sync_time(7, true));
  EXPECT_TRUE(store().set_sync_time(7, true));
  EXPECT_EQ(rows("select * from t_sync order by rowid"),
            (Rows{"me|10|20", "NULL|7|0", "NULL|7|0"}));
  int64_t received = 77;
  int64_t sent = 78;
  EXPECT_TRUE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, 77);
}

// A conversation that was stored under a higher limit: no operation reaches it or reports this.
TEST_F(SilentLoss, WritesToAConversationChangeNothing) {
  plant("insert into t_session(session_id,session_type,unread_count) values('" + over_ + "',2,1);" +
        "insert into t_message(session_id,session_type,direction,sent_time,server_uid) values('" +
        over_ + "',2,1,50,'long')");
  const Rows before = rows(kEverything);
  EXPECT_TRUE(store().update_message_receipt_status(over_, CV_GROUP, 5000));
  EXPECT_TRUE(store().clear_message(over_, CV_GROUP, false));
  EXPECT_TRUE(store().delete_message(over_, CV_GROUP));
  EXPECT_TRUE(store().update_message_status(over_, CV_GROUP));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, false, true));
  EXPECT_TRUE(store().set_message_draft(over_, CV_GROUP, ""));
  EXPECT_TRUE(store().set_silence(over_, CV_GROUP, 3));
  EXPECT_TRUE(store().remove_session(over_, CV_GROUP));
  EXPECT_TRUE(store().delete_session(over_, CV_GROUP));
  EXPECT_TRUE(store().common_session_operation(
      over_, CV_GROUP, "update t_session set title='t' where session_id=? and session_type=?"));
  store().set_session_time(over_, CV_GROUP, 5000, "CV:TxtMsg", 1, 1, 1, 0);
  store().set_sessiontime(5000, 1, over_, CV_GROUP);
  EXPECT_TRUE(store().set_message_latestid(over_, CV_GROUP, 1, 5000));
  EXPECT_TRUE(store().set_unread_by_value(over_, CV_GROUP, 1, 1));
  EXPECT_TRUE(store().sync_unread(over_, CV_GROUP, 5));
  EXPECT_TRUE(store().clear_unread(over_, CV_GROUP));
  store().set_unread_readtime(over_, CV_GROUP, 5);
  store().set_receipttime(over_, CV_GROUP, 5);
  store().delete_message(over_, CV_GROUP, Uids{"none"});
  EXPECT_EQ(rows(kEverything), before);
}

TEST_F(SilentLoss, ReadsOfAConversationFindNothing) {
  plant("insert into t_session(session_id,session_type,unread_count) values('" + over_ + "',2,1);" +
        "insert into t_message(session_id,session_type,sent_time) values('" + over_ + "',2,50)");
  EXPECT_FALSE(store().is_session_exist(over_, CV_GROUP));
  EXPECT_FALSE(store().is_message_exist(over_, CV_GROUP, int64_t{0}));
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, over_, 2), -1);
  int32_t number = 77;
  EXPECT_TRUE(store().get_unread_count(over_, CV_GROUP, number));
  EXPECT_EQ(number, 77);
  EXPECT_TRUE(store().get_message_count(over_, CV_GROUP, number));
  EXPECT_EQ(number, 0);
  EXPECT_TRUE(history(over_).empty());
}

// ---- Rows and statements over the limit ---------------------------------------------------------

TEST_F(LengthLimit, SaveOfARowOverTheLimitFails) {
  const NewMessage m = NewMessage().text(half_).named(half_);
  EXPECT_EQ(save(m), -1);
  EXPECT_EQ(added("id", "t_message"), Rows{});
  EXPECT_EQ(rows("select unread_count from t_session where session_type=2"), Rows{"1"});
  const Rows written = log.take();
  ASSERT_EQ(written.size(), 3U);
  EXPECT_EQ(Rows(written.begin(), written.begin() + 2), kTooBig);
  EXPECT_NE(written[2].find("cv;;;save_msg;;;step error: 18"), std::string::npos) << written[2];
}

TEST_F(LengthLimit, BatchRecordOverTheLimitReceivesThePreviousId) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (int i = 0; i < 3; ++i) {
    batch.push_back(std::make_unique<MessageResponse>());
    batch.back()->is_store_ = true;
    batch.back()->msg_id_ = -1;
  }
  batch[1]->content_ = batch[1]->server_uid_ = half_;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(joined(batch[0]->msg_id_, batch[1]->msg_id_, batch[2]->msg_id_), "4|4|5|");
  EXPECT_EQ(added("id", "t_message"), (Rows{"4", "5"}));
  EXPECT_FALSE(log.take().empty());
}

TEST_F(LengthLimit, ChangeThatMakesARowTooLongFailsAndKeepsTheRow) {
  plant("update t_message set server_uid='" + half_ + "' where id=1;" +
        "update t_session set title='" + half_ + "' where session_type=2");
  const Rows before = rows(kEverything);
  EXPECT_FALSE(store().set_message_content(1, half_, ""));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, half_));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_EQ(rows(kEverything), before);
}

TEST_F(LengthLimit, StoredTextOverTheLimitIsNotRead) {
  plant("update t_message set content='" + over_ + "' where id=1");
  MessageResponse m;
  m.msg_id_ = 1;
  EXPECT_FALSE(store().get_message_by_id(m));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_EQ(contents(history("room")), Uids{"second"});  // the rows read until then
  EXPECT_EQ(log.take(), kTooBig);
}

// The statements that grow with their parameters; all others have fixed lengths.
TEST_F(LengthLimit, StatementOverTheLimitIsNotPrepared) {
  const std::string quoted = "'" + over_ + "'";
  std::vector<int64_t> ids(kLimit, 1);
  std::vector<Session> list;
  std::vector<std::string> uids;
  std::string kinds = over_;
  limit(SQLITE_LIMIT_SQL_LENGTH, kLimit);
  int32_t rc = 0;
  EXPECT_EQ(store().prepare_sql("select " + quoted, rc), nullptr);
  EXPECT_EQ(rc, SQLITE_TOOBIG);
  EXPECT_EQ(store().execute_none_query("select " + quoted), SQLITE_TOOBIG);
  EXPECT_EQ(store().get_pragma("select " + quoted), -1);
  EXPECT_FALSE(store().is_table_exist(over_));
  EXPECT_FALSE(store().is_message_exist(quoted, uids));
  EXPECT_FALSE(store().common_message_int(1, 2, "delete from t_message--" + over_));
  EXPECT_FALSE(store().common_message_text(1, "x", "delete from t_message--" + over_));
  EXPECT_FALSE(store().common_session_operation("room", 2, "delete from t_session--" + over_));
  EXPECT_TRUE(history("room", over_).empty());
  EXPECT_FALSE(store().load_session(list, kinds, 0, 5, false));
  EXPECT_FALSE(store().load_message(list, over_));
  EXPECT_FALSE(store().load_distinct_session_with_unread(list, over_));
  EXPECT_FALSE(store().load_session_with_latestid(list, over_));
  const Rows failed = log.take();
  EXPECT_EQ(failed, Rows(failed.size(), prepare_failed("string or blob too big", SQLITE_TOOBIG)));
  EXPECT_EQ(failed.size(), 13U);

  store().delete_message("room", CV_GROUP, Uids{"uid1", over_});
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_FALSE(store().delete_message(ids));
  EXPECT_EQ(log.take().size(), 3U);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"3"});
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"2"});
}

}  // namespace
}  // namespace corvan_test
