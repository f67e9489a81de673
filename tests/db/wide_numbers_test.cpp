// Ids and times that need more than 32 bits, or more than a double has, through each way into the
// store and out of it. The type `long` has 32 bits on some systems.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/numbers.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::MessageResponse;

constexpr int64_t kIn2100 = 4102444800000;  // milliseconds

class WideNumbers : public StoreTest, public testing::WithParamInterface<int64_t> {
 protected:
  const int64_t value = GetParam();
  const std::string text = std::to_string(value);
};

INSTANTIATE_TEST_SUITE_P(Values, WideNumbers,
                         testing::Values(int64_t{kMaxInt} + 1, (int64_t{1} << 32) + 1,
                                         (int64_t{1} << 53) + 1, kIn2100, kMaxLong - 1),
                         testing::PrintToStringParamName());

TEST_P(WideNumbers, SaveKeepsTimeAndClientUid) {
  const int64_t id = save(NewMessage().at(value).client(value));
  EXPECT_EQ(rows("select sent_time,client_uid from t_message"), Rows{text + "|" + text});
  EXPECT_EQ(rows("select session_time from t_session"), Rows{text});
  int64_t client_uid = 0;
  store().get_client_uid(id, client_uid);
  EXPECT_EQ(client_uid, value);
}

TEST_P(WideNumbers, BatchKeepsTimesAndClientUids) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  batch.push_back(std::make_unique<MessageResponse>());
  MessageResponse& record = *batch.back();
  record.msg_id_ = -1;
  record.is_store_ = true;
  record.session_id_ = "room";
  record.session_type_ = CV_GROUP;
  record.sent_time_ = value;
  record.client_uid_ = value;
  ASSERT_TRUE(store().save_message(batch));
  EXPECT_EQ(rows("select sent_time,client_uid from t_message"), Rows{text + "|" + text});
}

TEST_P(WideNumbers, MessageIsFoundByItsId) {
  plant("insert into t_message(id,session_id,session_type,sent_time) values(" + text +
        ",'room',2," + text + ")");
  MessageResponse message;
  message.msg_id_ = value;
  ASSERT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(message.sent_time_, value);
  EXPECT_EQ(save(NewMessage().at(5)), value + 1);
}

TEST_P(WideNumbers, SyncTimesAreKeptAndRead) {
  ASSERT_TRUE(store().set_sync_time(value, true));
  ASSERT_TRUE(store().set_sync_time(value - 1, false));
  int64_t received = 0;
  int64_t sent = 0;
  EXPECT_TRUE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, value);
  EXPECT_EQ(sent, value - 1);
}

TEST_P(WideNumbers, ConversationKeepsItsTimesAndNewestMessage) {
  ASSERT_TRUE(store().add_session("room", CV_GROUP, value, value, "title", 3, 1));
  store().set_unread_readtime("room", CV_GROUP, value);
  store().set_receipttime("room", CV_GROUP, value);
  EXPECT_EQ(rows("select session_time,latest_id,read_time,receipt_time from t_session"),
            Rows{text + "|" + text + "|" + text + "|" + text});
  int64_t time = 0;
  store().get_receipttime("room", CV_GROUP, time);
  EXPECT_EQ(time, value);
}

TEST_P(WideNumbers, ClockOfThatTimeIsStored) {
  set_clock(value);
  ASSERT_TRUE(store().set_is_top("room", CV_GROUP, true, true));
  EXPECT_EQ(rows("select session_time from t_session"), Rows{text});
}

TEST_P(WideNumbers, NumbersAreWrittenInDecimal) {
  std::string number;
  store().number_to_string(number, value);
  EXPECT_EQ(number, text);
}

TEST_P(WideNumbers, StatementsTakeAndReturnAllBits) {
  int32_t rc = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select ?1", rc);
  ASSERT_NE(stmt, nullptr);
  store().bind(stmt, 1, value);
  store().step(stmt, false);
  EXPECT_EQ(store().get_int64(stmt, 0), value);
  store().finalize(stmt);
}

}  // namespace
}  // namespace corvan_test
