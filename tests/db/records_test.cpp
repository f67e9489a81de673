#include "db/cv_db_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace corvan_test {
namespace {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

template <typename Field, typename Type>
constexpr bool is_field = std::is_same_v<Field, Type>;

auto values(const MessageResponse& m) {
  return std::tie(m.session_id_, m.sender_, m.object_name_, m.content_, m.server_uid_, m.msg_id_,
                  m.session_type_, m.read_status_, m.sent_status_, m.unread_count_,
                  m.mention_count_, m.is_receive_, m.is_store_, m.is_offline_, m.is_command_,
                  m.sync_time_, m.sent_time_, m.client_uid_);
}

auto values(const Session& s) {
  return std::tie(s.session_id_, s.title_, s.draft_, s.content_, s.object_name_, s.sender_,
                  s.server_uid_, s.session_type_, s.is_top_, s.unread_count_, s.silence_,
                  s.mention_count_, s.is_recieve_, s.read_status_, s.sent_status_, s.session_time_,
                  s.latest_id_);
}

// All fields except the message.
auto values(const SessionInfo& s) {
  return std::tie(s.session_id_, s.title_, s.draft_, s.session_type_, s.is_top_, s.silence_,
                  s.unread_count_, s.mention_count_, s.session_time);
}

auto values(const UpdateValue& u) {
  return std::tie(u.session_id_, u.sender_, u.server_uid_old_, u.server_uid_new_, u.session_type_,
                  u.msg_id_, u.sent_time_, u.client_uid_);
}

// Whether the members are in memory in this order, which is the order of declaration.
template <typename... Fields>
bool in_declared_order(const std::tuple<const Fields&...>& fields) {
  const std::vector<const void*> places =
      std::apply([](const auto&... field) { return std::vector<const void*>{&field...}; }, fields);
  return std::is_sorted(places.begin(), places.end(), std::less<const void*>());
}

MessageResponse full_message() {
  MessageResponse m;
  m.session_id_ = "room";
  m.sender_ = "u01";
  m.object_name_ = "CV:TxtMsg";
  m.content_ = "hello";
  m.server_uid_ = "S-1";
  m.msg_id_ = int64_t{1} << 40;
  m.session_type_ = Corvan::CV_GROUP;
  m.read_status_ = 1;
  m.sent_status_ = 2;
  m.unread_count_ = 3;
  m.mention_count_ = 4;
  m.is_receive_ = true;
  m.is_store_ = true;
  m.is_offline_ = true;
  m.is_command_ = true;
  m.sync_time_ = true;
  m.sent_time_ = int64_t{1} << 41;
  m.client_uid_ = int64_t{1} << 42;
  return m;
}

Session full_session() {
  Session s;
  s.session_id_ = "room";
  s.title_ = "title";
  s.draft_ = "draft";
  s.content_ = "hello";
  s.object_name_ = "CV:TxtMsg";
  s.sender_ = "u01";
  s.server_uid_ = "S-1";
  s.session_type_ = 2;
  s.is_top_ = 1;
  s.unread_count_ = 3;
  s.silence_ = 4;
  s.mention_count_ = 5;
  s.is_recieve_ = 6;
  s.read_status_ = 7;
  s.sent_status_ = 8;
  s.session_time_ = int64_t{1} << 40;
  s.latest_id_ = int64_t{1} << 41;
  return s;
}

Session placed(int32_t is_top, int64_t time) {
  Session s;
  s.is_top_ = is_top;
  s.session_time_ = time;
  return s;
}

TEST(Records, KindsOfConversationAreNumberedFromOne) {
  static_assert(is_field<std::underlying_type_t<SessionType>, int32_t>);
  EXPECT_EQ(Corvan::CV_PRIVATE, 1);
  EXPECT_EQ(Corvan::CV_GROUP, 2);
  EXPECT_EQ(Corvan::CV_CHATROOM, 3);
  EXPECT_EQ(Corvan::CV_RECEPTION, 4);
  EXPECT_EQ(Corvan::CV_SYSTEM, 5);
}

TEST(Records, FieldsAreAsWideAsTheirColumns) {
  static_assert(is_field<decltype(MessageResponse::msg_id_), int64_t>);
  static_assert(is_field<decltype(MessageResponse::session_type_), SessionType>);
  static_assert(is_field<decltype(MessageResponse::is_receive_), bool>);
  static_assert(is_field<decltype(MessageResponse::sync_time_), bool>);
  static_assert(is_field<decltype(MessageResponse::sent_time_), int64_t>);
  static_assert(is_field<decltype(MessageResponse::client_uid_), int64_t>);
  static_assert(is_field<decltype(Session::session_type_), int32_t>);
  static_assert(is_field<decltype(Session::is_recieve_), int32_t>);
  static_assert(is_field<decltype(Session::session_time_), int64_t>);
  static_assert(is_field<decltype(Session::latest_id_), int64_t>);
  static_assert(is_field<decltype(SessionInfo::session_type_), int32_t>);
  static_assert(is_field<decltype(SessionInfo::session_time), int64_t>);
  static_assert(is_field<decltype(SessionInfo::message_), MessageResponse>);
  static_assert(is_field<decltype(UpdateValue::session_type_), int32_t>);
  static_assert(is_field<decltype(UpdateValue::msg_id_), int64_t>);
}

TEST(Records, FieldsAreDeclaredInTheListedOrder) {
  EXPECT_TRUE(in_declared_order(values(MessageResponse())));
  EXPECT_TRUE(in_declared_order(values(Session())));
  EXPECT_TRUE(in_declared_order(values(SessionInfo())));
  EXPECT_TRUE(in_declared_order(values(UpdateValue())));
  const SessionInfo info;
  EXPECT_LT(static_cast<const void*>(&info.session_time), static_cast<const void*>(&info.message_));
}

TEST(Records, DefaultMessageIsEmpty) {
  EXPECT_EQ(values(MessageResponse()),
            std::make_tuple("", "", "", "", "", int64_t{0}, SessionType(0), 0, 0, 0, 0, false,
                            false, false, false, false, int64_t{0}, int64_t{0}));
}

TEST(Records, DefaultSessionIsEmpty) {
  EXPECT_EQ(values(Session()), std::make_tuple("", "", "", "", "", "", "", 0, 0, 0, 0, 0, 0, 0, 0,
                                               int64_t{0}, int64_t{0}));
}

TEST(Records, DefaultListEntryIsEmpty) {
  const SessionInfo info;
  EXPECT_EQ(values(info), std::make_tuple("", "", "", 0, 0, 0, 0, 0, int64_t{0}));
  EXPECT_EQ(values(info.message_), values(MessageResponse()));
}

TEST(Records, DefaultUpdateHasNoMessage) {
  EXPECT_EQ(values(UpdateValue()),
            std::make_tuple("", "", "", "", 0, int64_t{-1}, int64_t{0}, int64_t{0}));
}

TEST(Records, CopiedUpdateHasEveryField) {
  UpdateValue u;
  u.session_id_ = "room";
  u.sender_ = "me";
  u.server_uid_old_ = "old";
  u.server_uid_new_ = "new";
  u.session_type_ = 2;
  u.msg_id_ = 3;
  u.sent_time_ = 4;
  u.client_uid_ = 5;
  const UpdateValue copy(u);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(values(copy),
            std::make_tuple("room", "me", "old", "new", 2, int64_t{3}, int64_t{4}, int64_t{5}));
}

TEST(Records, AssignedMessageHasEveryField) {
  const MessageResponse source = full_message();
  MessageResponse target;
  target = source;
  EXPECT_EQ(values(target), values(source));
}

TEST(Records, AssignedSessionHasEveryField) {
  const Session source = full_session();
  Session target;
  target = source;
  EXPECT_EQ(values(target), values(source));
}

TEST(Records, AssignedListEntryHasEveryField) {
  SessionInfo source;
  source.session_id_ = "room";
  source.title_ = "title";
  source.draft_ = "draft";
  source.session_type_ = 2;
  source.is_top_ = 1;
  source.silence_ = 3;
  source.unread_count_ = 4;
  source.mention_count_ = 5;
  source.session_time = 6;
  source.message_ = full_message();
  SessionInfo target;
  target = source;
  EXPECT_EQ(values(target), values(source));
  EXPECT_EQ(values(target.message_), values(source.message_));
}

TEST(Records, CopyOwnsItsTexts) {
  MessageResponse source = full_message();
  const MessageResponse copy = source;
  source.content_[0] = 'J';
  EXPECT_EQ(copy.content_, "hello");
}

TEST(Records, EqualSessionsAreNotLess) {
  EXPECT_FALSE(placed(0, 100) < placed(0, 100));
  EXPECT_FALSE(placed(1, 100) < placed(1, 100));
}

TEST(Records, NewerSessionIsLessAmongEquallyPinned) {
  for (const int32_t is_top : {0, 1}) {
    EXPECT_TRUE(placed(is_top, 101) < placed(is_top, 100));
    EXPECT_FALSE(placed(is_top, 100) < placed(is_top, 101));
  }
}

TEST(Records, PinnedOlderAndUnpinnedNewerAreEachLessThanTheOther) {
  EXPECT_TRUE(placed(1, 100) < placed(0, 200));
  EXPECT_TRUE(placed(0, 200) < placed(1, 100));
}

TEST(Records, PinnedNewerIsLessThanUnpinnedOlderAndNotReversed) {
  EXPECT_TRUE(placed(1, 200) < placed(0, 100));
  EXPECT_FALSE(placed(0, 100) < placed(1, 200));
}

TEST(Records, PinnedIsLessThanUnpinnedOfEqualTimeAndNotReversed) {
  EXPECT_TRUE(placed(1, 100) < placed(0, 100));
  EXPECT_FALSE(placed(0, 100) < placed(1, 100));
}

TEST(Records, PinnedIsComparedByItsNumber) {
  EXPECT_TRUE(placed(2, 100) < placed(1, 200));
  EXPECT_TRUE(placed(0, 100) < placed(-1, 200));
}

TEST(Records, OrderIgnoresAllButPinnedAndTime) {
  Session a = full_session();
  Session b = placed(a.is_top_, a.session_time_);
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
}

}  // namespace
}  // namespace corvan_test
