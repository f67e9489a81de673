// Texts that a peer or a careless caller could choose, and that are bound or escaped: each is
// stored, compared and returned byte for byte, up to its first zero byte.

#include <sqlite3.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/db/crafted_text.h"

namespace corvan_test {
namespace {

using namespace std::string_literals;

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

using Uids = std::vector<std::string>;

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

class HostileText : public CraftedText {
 protected:
  using Run = std::function<std::string(const std::string& text)>;

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
class HostileFolderName : public HostileText {
 protected:
  void expect_store_in(const std::string& name) {
    const std::string path = folder.file(name) + "/";
    std::filesystem::create_directory(std::filesystem::u8path(path));
    store().close_db();
    EXPECT_TRUE(store().init_open_db(cvrtc::Pathname(path), "", "me")) << name;
    EXPECT_TRUE(store().set_sync_time(7, true)) << name;
    EXPECT_EQ(corvan_test::rows(path + "corvan", "select receive_time from t_sync"), Rows{"7"})
        << name;
  }
};

TEST_F(HostileFolderName, IsThePlaceOfTheStore) {
  for (const char* name : {"it's", "a#b", "a%20b", "x'; drop--", ".db", "-wal", "%s%n"}) {
    expect_store_in(name);
  }
}

TEST_F(HostileFolderName, WithCharactersThatWindowsForbidsIsThePlaceOfTheStore) {
  for (const char* name : {"\"quoted\"", "a?mode=memory", "tab\there", "\xff\xfe", "*"}) {
    expect_store_in(name);
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

}  // namespace
}  // namespace corvan_test
