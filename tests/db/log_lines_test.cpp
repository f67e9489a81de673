// The log lines of the operations: exact text, severity and order, and none if the logger does not
// accept the severity.

#include <sqlite3.h>

#include "tests/support/failures.h"
#include "tests/support/grouping_locale.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::MessageResponse;

const std::string kInSave =
    "int64_t Corvan::CvDbSingleton::save_message(const std::string &, Corvan::SessionType, "
    "const std::string &, const std::string &, const std::string &, bool, int32_t, int32_t, bool, "
    "int64_t, int64_t, const std::string &, bool, bool, bool): ";
const std::string kInClientUid = "void Corvan::CvDbSingleton::get_client_uid(int64_t, int64_t &): ";
const std::string kInQuery =
    "bool Corvan::CvDbSingleton::query_message(Corvan::MessageResponse &, bool): ";
const std::string kInHistory =
    "bool Corvan::CvDbSingleton::get_history_message_by_object_name(const std::string &, "
    "Corvan::SessionType, const std::vector<std::string> &, int64_t, int32_t, "
    "std::vector<Corvan::MessageResponse> &, bool): ";
const std::string kInUnread =
    "bool Corvan::CvDbSingleton::get_unread_count(const std::string &, Corvan::SessionType, "
    "int32_t &): ";

// Accepts every severity.
class LogLines : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_SENSITIVE);
  }
};

TEST_F(LogLines, SaveOfNewMessage) {
  EXPECT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(log.take(), (Rows{"0 " + kInSave + "cv;;;save_msg;;;rowid: 1",
                              "2 " + kInSave + "cv;;;save_msg;;; msg_id: 1"}));
}

TEST_F(LogLines, SaveOfKnownServerUid) {
  save(NewMessage().named("uid-7"));
  log.take();
  EXPECT_EQ(save(NewMessage().named("uid-7")), -1);
  EXPECT_EQ(log.take(), Rows{"2 " + kInSave + "cv;;;save_msg;;;msg exists: uid-7"});
}

TEST_F(LogLines, SaveOfKnownClientUid) {
  save(NewMessage().own(1234567).named("a"));
  log.take();
  EXPECT_EQ(save(NewMessage().own(1234567).named("b")), -1);
  EXPECT_EQ(log.take(), Rows{"2 " + kInSave + "cv;;;save_msg;;;msg exists: 1234567"});
}

TEST_F(LogLines, SaveThatCompletesIsSilent) {
  save(NewMessage().own(5));
  log.take();
  EXPECT_EQ(save(NewMessage().own(5).named("b")), 1);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(LogLines, SaveWhoseInsertFails) {
  plant(refuse("insert on t_message"));
  EXPECT_EQ(save(NewMessage()), -1);
  Rows expected = run_refused();
  expected.push_back("3 " + kInSave + "cv;;;save_msg;;;step error: 19");
  EXPECT_EQ(log.take(), expected);
}

TEST_F(LogLines, ClientUidOfMessage) {
  save(NewMessage().own(42));
  log.take();
  int64_t uid = 7;
  store().get_client_uid(1, uid);
  EXPECT_EQ(log.take(), (Rows{"2 " + kInClientUid + "get_client_uid: begin,msg_id_: 1",
                              "2 " + kInClientUid + "get_client_uid: begin,SQLITE_ROW: ",
                              "2 " + kInClientUid + "get_client_uid: end,client_uid: 42"}));
}

TEST_F(LogLines, ClientUidOfUnknownMessageLogsTheCallersValue) {
  int64_t uid = 7;
  store().get_client_uid(99, uid);
  EXPECT_EQ(log.take(), (Rows{"2 " + kInClientUid + "get_client_uid: begin,msg_id_: 99",
                              "2 " + kInClientUid + "get_client_uid: end,client_uid: 7"}));
}

TEST_F(LogLines, MessageFound) {
  save(NewMessage().named("uid-7"));
  log.take();
  MessageResponse by_id;
  by_id.msg_id_ = 1;
  store().get_message_by_id(by_id);
  MessageResponse by_uid;
  by_uid.server_uid_ = "uid-7";
  store().get_message_by_uid(by_uid);
  const std::string line = "2 " + kInQuery + "query_message: 1server_uid_:uid-7";
  EXPECT_EQ(log.take(), (Rows{line, line}));
}

TEST_F(LogLines, MessageNotFoundLogsTheRecordsId) {
  MessageResponse message;
  message.msg_id_ = 31;
  message.server_uid_ = "unknown";
  store().get_message_by_uid(message);
  EXPECT_EQ(log.take(), Rows{"2 " + kInQuery + "query_message: no message31"});
}

TEST_F(LogLines, HistoryPage) {
  save(NewMessage().at(100));
  save(NewMessage().own().at(200));
  log.take();
  std::vector<MessageResponse> page;
  store().get_history_message_by_object_name("room", Corvan::CV_GROUP, {"CV:TxtMsg"}, 0, 5, page,
                                             true);
  const std::string head =
      "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid "
      "from t_message where session_id=";
  const std::string tail = " and object_name in('CV:TxtMsg') order by sent_time desc limit ";
  EXPECT_EQ(log.take(),
            (Rows{"2 " + kInHistory + "get_history_message_by_object_name: " + head +
                      "? and session_type=? and sent_time<?" + tail + "?",
                  "2 " + kInHistory + "session_id: roomsession_type: 2search_time: 201sqlStr: " +
                      head + "'room' and session_type=2 and sent_time<201" + tail + "5",
                  "2 " + kInHistory + "step(stmt): SQLITE_ROW msg_id_=2p.is_receive_0",
                  "2 " + kInHistory + "step(stmt): SQLITE_ROW msg_id_=1p.is_receive_1"}));
}

TEST_F(LogLines, HistoryPageTooLongWithItsValues) {
  const std::string id(300, 'x');
  sqlite3_limit(store_connection(), SQLITE_LIMIT_LENGTH, 400);
  std::vector<MessageResponse> page;
  EXPECT_FALSE(
      store().get_history_message_by_object_name(id, Corvan::CV_GROUP, {}, 0, 5, page, true));
  EXPECT_EQ(log.take().back(),
            "2 " + kInHistory + "session_id: " + id + "session_type: 2search_time: 1sqlStr: ");
}

TEST_F(LogLines, UnreadCountOfConversation) {
  save(NewMessage());
  log.take();
  int32_t unread = 0;
  store().get_unread_count("room", Corvan::CV_GROUP, unread);
  EXPECT_EQ(log.take(), Rows{"2 " + kInUnread +
                             "get_unread_count: select unread_count from t_session "
                             "where session_id=? and session_type=?1"});
}

TEST_F(LogLines, UnreadCountOfUnknownConversationLogsTheCallersValue) {
  int32_t unread = 55;
  store().get_unread_count("none", Corvan::CV_GROUP, unread);
  EXPECT_EQ(log.take(), Rows{"2 " + kInUnread +
                             "get_unread_count: select unread_count from t_session "
                             "where session_id=? and session_type=?55"});
}

TEST_F(LogLines, NumbersAreNotGroupedByTheGlobalLocale) {
  save(NewMessage().own(1234567).named("a"));
  log.take();
  const GroupingLocale grouping;
  const int64_t id = save(NewMessage().own(1234567).named("b"));
  EXPECT_EQ(id, -1);
  EXPECT_EQ(log.take(), Rows{"2 " + kInSave + "cv;;;save_msg;;;msg exists: 1234567"});
}

TEST_F(LogLines, LinesBelowTheMinimumAreNotWritten) {
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
  save(NewMessage().named("a"));
  save(NewMessage().named("a"));
  int64_t uid = 0;
  store().get_client_uid(1, uid);
  MessageResponse message;
  store().get_message_by_id(message);
  std::vector<MessageResponse> page;
  store().get_history_message_by_time("room", Corvan::CV_GROUP, "", 0, 5, page, true);
  int32_t unread = 0;
  store().get_unread_count("room", Corvan::CV_GROUP, unread);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(LogLines, ExpandedTextIsFetchedOnlyForItsLine) {
  std::vector<MessageResponse> page;
  take_fetched_texts();
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
  store().get_history_message_by_time("room", Corvan::CV_GROUP, "", 0, 5, page, true);
  EXPECT_EQ(take_fetched_texts().expanded, 0);
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_INFO);
  store().get_history_message_by_time("room", Corvan::CV_GROUP, "", 0, 5, page, true);
  EXPECT_EQ(take_fetched_texts().expanded, 1);
}

TEST_F(LogLines, ErrorTextOfAFailedStepIsFetchedOnlyForItsLine) {
  plant(refuse("insert on t_message"));
  take_fetched_texts();
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_ERROR);
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_EQ(take_fetched_texts().errors, 0);
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_EQ(take_fetched_texts().errors, 2);  // for the step and for finalising
}

TEST_F(LogLines, ErrorTextOfAFailedPrepareIsAlwaysFetched) {
  take_fetched_texts();
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_NONE);
  EXPECT_EQ(store().execute_none_query("no such"), 1);
  EXPECT_EQ(take_fetched_texts().errors, 1);
}

TEST_F(LogLines, SensitiveLinesNeedTheLowestMinimum) {
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_VERBOSE);
  save(NewMessage());
  EXPECT_EQ(log.take(), Rows{"2 " + kInSave + "cv;;;save_msg;;; msg_id: 1"});
}

TEST_F(LogLines, FailuresAreSilentWhenNothingIsAccepted) {
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_NONE);
  EXPECT_EQ(store().execute_none_query("no such"), 1);
  plant(refuse("insert on t_message"));
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_EQ(log.take(), Rows{});
}

}  // namespace
}  // namespace corvan_test
