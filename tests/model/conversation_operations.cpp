// The operations on conversations and counters.

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "tests/model/operation_list.h"

namespace corvan_test {

using namespace std::string_literals;

using Corvan::CvDbSingleton;
using Corvan::Session;
using Corvan::SessionInfo;

namespace {

// The caller's statement: the store takes its text, the model the name of its column.
std::string session_statement(CvDbSingleton&, const std::string& column) {
  return "update t_session set " + column + "=7 where session_id=? and session_type=?";
}
std::string session_statement(Model&, const std::string& column) {
  return column;
}

}  // namespace

std::vector<ModelOperation> operations_on_conversations() {
  return {
      // Conversation rows and settings
      {3,
       [](Step& s) {
         s.both(CALL(set_is_top), std::tuple{s.room(), s.kind(), s.flag(), s.flag()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_message_draft), std::tuple{s.room(), s.kind(), s.flag() ? ""s : s.body()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_message_draft), std::tuple{s.room(), s.kind(), s.body()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_silence), std::tuple{s.room(), s.kind(), s.of({0, 1, 1, s.code()})});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(get_silence), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(remove_session), std::tuple{s.room(), s.kind()});
       }},
      {1, [](Step& s) { s.both(CALL(clear_session), std::tuple{s.kinds()}); }},
      {1,
       [](Step& s) {
         s.both(
             "common_session_operation",
             [](auto& target, const std::string& id, int32_t kind, const std::string& column) {
               return target.common_session_operation(id, kind, session_statement(target, column));
             },
             std::tuple{s.room(), s.kind_number(),
                        s.of({"is_top"s, "silence"s, "latest_id"s, "unread_count"s, "nonsense"s})});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(is_session_exist), std::tuple{s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(add_session),
                std::tuple{s.room(), s.kind(), s.time(), s.id(), s.body(), s.code(), s.code()});
       }},
      {5,
       [](Step& s) {
         s.both(CALL(set_session_time),
                std::tuple{s.room(), s.kind(), s.time(), s.object_name(), s.id(), s.code(),
                           s.code(), static_cast<uint32_t>(s.below(9))});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_sessiontime), std::tuple{s.time(), s.id(), s.room(), s.kind()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_sessiontime),
                std::tuple{s.room(), s.kind_number(), s.time(), s.id(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(delete_session), std::tuple{s.room(), s.kind_number()});
       }},

      // Conversation list
      {14,
       [](Step& s) {
         std::vector<SessionInfo> before;
         if (s.one_in(4)) before.push_back(s.session_info());
         s.both(CALL(get_session_list_by_page),
                std::tuple{s.listed_kinds(), s.cursor(), s.count(), before});
       }},
      {4, [](Step& s) { s.both(CALL(get_session), std::tuple{s.session_info()}); }},
      {4,
       [](Step& s) {
         s.both(CALL(load_session),
                std::tuple{s.sessions(), s.kind_list(), s.cursor(), s.count(), s.flag()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(load_session), std::tuple{s.session(), s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(load_message), std::tuple{s.sessions(), s.id_list()});
       }},
      {1, [](Step& s) { s.both(CALL(load_message), std::tuple{s.session()}); }},
      {5,
       [](Step& s) {
         s.both(CALL(load_distinct_session_with_unread), std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         // Conversations of one latest_id come in any order.
         const auto sorted = [](auto& target, std::vector<Session>& found, std::string& ids) {
           const bool result = target.load_session_with_latestid(found, ids);
           std::sort(found.begin(), found.end(), [](const Session& a, const Session& b) {
             return std::tie(a.session_id_, a.session_type_) <
                    std::tie(b.session_id_, b.session_type_);
           });
           return result;
         };
         s.both("load_session_with_latestid", sorted, std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(set_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},

      // Counters, read and receipt times
      {4,
       [](Step& s) {
         s.both(CALL(sync_unread), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(clear_unread), std::tuple{s.room(), s.kind()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipt_time), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2, [](Step& s) { s.both(CALL(get_total_unread_count), std::tuple{s.code()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(get_cate_unread_count), std::tuple{s.kinds(), s.code(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_mention_count), std::tuple{s.kinds(), s.code(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_unread_by_value),
                std::tuple{s.room(), s.kind_number(), s.count(), s.count()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unred_mention),
                std::tuple{s.room(), s.kind_number(), s.time(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(set_unread_readtime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
  };
}

}  // namespace corvan_test
