// The measured operations whose work grows with what they sum, count or skip.

#include "bench/growth/calls.h"
#include "bench/growth/operations.h"

namespace corvan_bench {

using Corvan::MessageResponse;
using Corvan::SessionType;

std::vector<Sum> sums() {
  const auto sum = [](std::vector<SessionType> kinds, bool with_dnd) {
    return [=] {
      int32_t unread = 0;
      store().get_cate_unread_count(kinds, unread, with_dnd);
      verify(unread > 0, "unread messages");
    };
  };
  // A condition on the rows and a second counter each take longer. With three kinds or more, SQLite
  // looks each row's kind up in a list.
  constexpr double kPlain = 50;
  constexpr double kWithMore = 100;
  constexpr double kWithManyKinds = 150;
  return {
      {{"get_total_unread_count",
        [] {
          int32_t unread = 0;
          store().get_total_unread_count(unread);
          verify(unread > 0, "unread messages");
        }},
       kPlain},
      {{"get_cate_unread_count, all", sum({}, true)}, kPlain},
      {{"get_cate_unread_count, not muted", sum({}, false)}, kWithMore},
      {{"get_cate_unread_count, two kinds", sum(kTwoKinds, true)}, kWithMore},
      {{"get_cate_unread_count, two kinds, not muted", sum(kTwoKinds, false)}, kWithMore},
      {{"get_cate_unread_count, five kinds, not muted",
        sum({Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
             Corvan::CV_SYSTEM},
            false)},
       kWithManyKinds},
      {{"get_cate_unread_count, one kind, not muted", sum({Corvan::CV_GROUP}, false)}, kWithMore},
      {{"get_unread_mention_count, all",
        [] {
          int32_t unread = 0;
          int32_t mention = 0;
          store().get_unread_mention_count({}, unread, mention);
          verify(unread > 0 && mention > 0, "unread messages");
        }},
       kWithMore},
  };
}

std::vector<Exception> exceptions(FilledStore& filled) {
  const Target& largest = filled.largest();
  const Target own = filled.target("own", "own", Corvan::CV_GROUP);
  const Target covered = filled.target("covered", "covered", Corvan::CV_GROUP);
  const Target received = filled.target("received", "received", Corvan::CV_GROUP);
  const Target older = filled.target("older, read", "older-read", Corvan::CV_GROUP);
  const int64_t all = filled.conversations();
  const auto groups = static_cast<int64_t>(
      filled.store().number("select count(*) from t_session where session_type=2"));
  const auto none = [](int32_t type, const Target& t) {
    return [=] {
      verify(store().get_max_message_id(t.session_type, t.session_id, type) == -1, "none");
    };
  };
  const auto no_time = [](int32_t type, const Target& t) {
    return [=] {
      int64_t time = 0;
      store().get_max_time(time, t.session_type, t.session_id, type);
      verify(time == 0, "none");
    };
  };
  return {
      {"get_message_count", "counts", "message", largest.messages, 100,
       [=] {
         int32_t count = 0;
         store().get_message_count(largest.session_id, largest.session_type, count);
         verify(count == largest.messages, "all messages");
       }},
      {"history, page of a kind of message that is not there",
       "an index by kind of message would be written with every save", "message", largest.messages,
       200, [=] { expect_page(largest, 0, true, {"CV:FileMsg"}, 0); }},
      {"is_message_exist by client keys, client uid 0, which many messages have",
       "an index by conversation would be written on another page with every save", "message",
       received.messages, 150,
       [=] {
         std::vector<Corvan::UpdateValue> keys(1);
         keys[0].session_id_ = received.session_id;
         keys[0].session_type_ = received.session_type;
         verify(!store().is_message_exist(keys), "none");
       }},
      {"is_message_exist after the beginning, own messages alone",
       "an index of received messages would be written with every save", "message", own.messages,
       150,
       [=] {
         verify(!store().is_message_exist(own.session_id, own.session_type, int64_t{0}), "none");
       }},
      {"get_max_time, received, own messages alone", "as the one above", "message", own.messages,
       100, no_time(1, own)},
      {"get_max_message_id, received, own messages alone", "as the one above", "message",
       own.messages, 3000, none(1, own)},
      {"clear_unread, own messages alone", "as the one above; walks twice", "message", own.messages,
       250, [=] { verify(store().clear_unread(own.session_id, own.session_type), "an update"); }},
      {"get_max_time, sent, covered messages alone",
       "an index of sent messages would be written with every save", "message", covered.messages,
       100, no_time(0, covered)},
      {"get_max_message_id, sent, covered messages alone", "as the one above", "message",
       covered.messages, 3000, none(0, covered)},
      {"get_mention_message, older rows that are no mentions",
       "a narrower condition would cost every save, for rows that the store never writes",
       "message", older.messages, 150,
       [=] {
         std::vector<MessageResponse> list;
         store().get_mention_message(older.session_id, older.session_type, list);
         verify(list.empty(), "no mentions");
       }},
      {"get_unred_mention, older rows that are read", "as the one above", "message", older.messages,
       120,
       [=] {
         int32_t unread = -1;
         int32_t mention = -1;
         store().get_unred_mention(older.session_id, older.session_type, 0, unread, mention);
         verify(unread == 0 && mention == 0, "none");
       }},
      {"list, page of kinds that are not there",
       "an index by kind would lead lists of several kinds astray", "conversation", all, 110,
       [] {
         expect_list({kNoSuchKind, Corvan::CV_CHATROOM}, 0, 0);
       }},
      {"get_cate_unread_count, one kind",
       "as the one above; looks up each conversation of the kind", "conversation of the kind",
       groups, 1800,
       [] {
         int32_t unread = 0;
         store().get_cate_unread_count({Corvan::CV_GROUP}, unread, true);
         verify(unread > 0, "unread messages");
       }},
      {"clear_session, kinds that are not there", "as the one above", "conversation", all, 110,
       [] {
         verify(store().clear_session({kNoSuchKind, Corvan::CV_CHATROOM}), "a deletion");
       }},
  };
}

}  // namespace corvan_bench
